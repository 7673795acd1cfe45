# Completion of kestorctl for bash. kestorctl itself lists the candidates, without starting a server.

_kestorctl() {
  local end text words=() typed='' candidate
  # Removes the quotes from the words; the last quote may be open. The added dot preserves an empty last word.
  for end in "''" "'" '"'; do
    text="$(xargs printf '%s\n' <<<"${COMP_LINE:0:COMP_POINT}$end ." 2>/dev/null)" && break
  done
  mapfile -t words <<<"$text"
  unset 'words[-1]'
  [ "${#words[@]}" -gt 1 ] || return
  words=("${words[@]/#\~\//$HOME/}")
  # In a word with a "=", bash replaces only what follows it.
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
            # Nothing in a name may be executed. A "!" cannot be quoted there.
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
