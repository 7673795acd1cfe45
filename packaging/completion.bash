# Completion of kestorctl for bash. What can follow, kestorctl itself tells; it starts no server for that.

_kestorctl() {
  local end text words=() typed='' candidate
  # The words without their quotes, of which the last may be open. A dot of our own keeps an empty last word.
  for end in "''" "'" '"'; do
    text="$(xargs printf '%s\n' <<<"${COMP_LINE:0:COMP_POINT}$end ." 2>/dev/null)" && break
  done
  mapfile -t words <<<"$text"
  unset 'words[-1]'
  [ "${#words[@]}" -gt 1 ] || return
  words=("${words[@]/#\~\//$HOME/}")
  # Of a word with a "=" bash replaces only what follows.
  if [ "${COMP_WORDS[COMP_CWORD]}" = = ] || [ "${COMP_WORDS[COMP_CWORD - 1]}" = = ]; then
    [ "${words[-1]#--}" != "${words[-1]}" ] || typed="${words[-1]%=*}="
  fi

  while IFS=$'\t' read -r candidate _; do
    case "$candidate" in
      :files) compopt -o default ;;
      :folders) compopt -o dirnames ;;
      *)
        candidate="${candidate#"$typed"}"
        case "$end" in
          "''") printf -v candidate %q "$candidate" ;;
          "'") candidate="${candidate//\'/\'\\\'\'}" ;;
          '"')
            # What a name holds must not be run. A "!" has no quote there.
            case "$candidate" in *'!'*) continue ;; esac
            candidate="$(sed 's/[\\$`"]/\\&/g' <<<"$candidate")"
            ;;
        esac
        COMPREPLY+=("$candidate")
        ;;
    esac
  done < <("${words[0]}" complete "${words[@]:1}" 2>/dev/null)
}
complete -F _kestorctl kestorctl
