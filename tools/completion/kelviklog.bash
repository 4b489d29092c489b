# bash completion for kelviklog.

_kelviklog() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    -l | --level)
      mapfile -t COMPREPLY < <(compgen -W "debug info warning error fatal" -- "$current")
      return
      ;;
    --dir)
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      compopt -o filenames 2> /dev/null
      return
      ;;
    -m | --module | -t | --title | --size | --duration | --count) return ;;
  esac
  if [[ $current == -* && $previous != --config ]]; then
    mapfile -t COMPREPLY < <(compgen -W "--help --version --module --title --level --priority-prefix
      --time --no-time --tid --escape --no-escape --terminal --no-terminal --syslog --file --no-file --dir --size
      --duration --count --config --progress --no-progress" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    compopt -o filenames 2> /dev/null
  fi
}

complete -F _kelviklog kelviklog
