#compdef kestorctl
# Completion of kestorctl for zsh. kestorctl itself lists the candidates, without starting a server.

local -a before candidates files
local line value
before=("${(@Q)words[1,CURRENT-1]}")
before=("${(@)before/#\~\//$HOME/}")
for line in "${(@f)$("$before[1]" complete "${(@)before[2,-1]}" "${(Q)PREFIX}" 2>/dev/null)}"; do
  case $line in
    :files) files=(_files) ;;
    :folders) files=(_files -/) ;;
    *$'\t'*)
      value=${line%%$'\t'*}
      candidates+=("$value:${line#*$'\t'}")
      ;;
    ?*) candidates+=("${${line//\\/\\\\}//:/\\:}") ;;
  esac
done

[[ $PREFIX != --* ]] || compset -P '*='
(( ! $#candidates )) || _describe -t values value candidates
if (( $#files )); then
  compset -P '*='
  $files
fi
