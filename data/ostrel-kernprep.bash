# Completion of ostrel-kernprep for bash. It stands on bash alone.

_ostrel_kernprep() {
  local options="--launcher= --icon= --appname= --gcc= --headers= --gcc-ignore-minor
    --help --help-all --help-gtk --display= --screen= --name= --class= --gtk-module= --sync --g-fatal-warnings"
  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD-1]}

  # "--gcc=/usr" comes as three words, and as two when nothing stands behind the sign.
  if [ "$word" = = ]; then
    word=
  elif [ "$option" = = ] && [ "$COMP_CWORD" -ge 2 ]; then
    option=${COMP_WORDS[COMP_CWORD-2]}
  fi

  compopt +o nospace -o filenames 2>/dev/null
  case $option in
    --launcher | --gcc) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    --headers) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
    --icon) mapfile -t COMPREPLY < <(compgen -W "ostrel-kernprep" -- "$word") ;;
    --appname | --display | --screen | --name | --class | --gtk-module) COMPREPLY=() ;;
    *)
      mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
      compopt +o filenames 2>/dev/null
      [[ ${COMPREPLY[0]:-} != *= ]] || compopt -o nospace 2>/dev/null
      ;;
  esac
}

complete -F _ostrel_kernprep ostrel-kernprep
