# Completion of kesctl for bash.
_kesctl() {
  local word=$2 previous=${COMP_WORDS[COMP_CWORD - 1]} subcommand='' words='' select i
  [ "$word" != '=' ] || word=
  [ "$previous" != '=' ] || previous=${COMP_WORDS[COMP_CWORD - 2]}  # bash breaks --band=5 into three words
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --socket)
        i=$((i + 1))
        [ "${COMP_WORDS[i]}" != '=' ] || i=$((i + 1))
        ;;
      scan | watch | range | doctor)
        subcommand=${COMP_WORDS[i]}
        break
        ;;
    esac
  done

  case $previous in
    --socket | --pcap)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --mode) words='fresh cache fallback' ;;
    --band) words='2.4 5 all' ;;
    --channel | --ssid | --bssid | --max-age | --timeout | --interval | --count | --repeat) return ;;
    *)
      select='--band --channel --ssid --bssid --passive --timeout --json'
      case $subcommand in
        scan) words="--mode $select --max-age --elements --pcap" ;;
        watch) words="$select --interval --count" ;;
        range) words='--periodic --interval --count --timeout --repeat --json' ;;
        doctor) words='--json' ;;
        *) words='scan watch range doctor --version' ;;
      esac
      words="$words --socket --help"
      [ -z "$subcommand" ] || [[ $word == -* ]] || return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -F _kesctl kesctl
