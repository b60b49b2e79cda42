# Completion of kest-agent for bash. The options come from kest-agent itself.
_kest_agent() {
    COMPREPLY=()
    case $3 in
        -s | --settings | --encipher) compopt -o default 2>/dev/null ;;
        -n | --samples | -i | --interval | -l | --log-level) ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$("$1" --help 2>/dev/null | grep -o -- '--[a-z-]*' | sort -u)" -- "$2") ;;
    esac
}
complete -F _kest_agent kest-agent
