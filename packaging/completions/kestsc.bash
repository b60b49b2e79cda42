# Completion of kestsc for bash. Commands, options and services come from kestsc itself, so they are always those of the
# installed version.

# The signature of a command, such as "NAME... CODE", from the first line of its help.
_kestsc_signature() {
    "$1" "$2" --help 2>/dev/null | sed -n "1s/^kestsc $2 \(.*\) - .*/\1/p"
}

# Offers each line of standard input that begins with the word $1, quoted for the shell.
_kestsc_offer() {
    local line
    while IFS= read -r line; do
        [[ $line == "$1"* ]] && COMPREPLY+=("$(printf %q "$line")")
    done
}

_kestsc_services() {
    "$1" list --json 2>/dev/null | grep -o '"name":"[^"]*"' | sed 's/^"name":"//; s/"$//'
}

# Completes the value $3 of the option $2.
_kestsc_value() {
    case $2 in
        --start) _kestsc_offer "$3" < <(printf '%s\n' auto demand disabled) ;;
        --restart) _kestsc_offer "$3" < <(printf '%s\n' never on-failure always) ;;
        --depends) _kestsc_offer "$3" < <(_kestsc_services "$1") ;;
        --command) compopt -o default 2>/dev/null ;;
    esac
}

_kestsc() {
    local program=$1 word=$2 command='' help i dashes='' count=0
    COMPREPLY=()
    help=$("$program" --help 2>/dev/null) || return

    # The words before the one to complete: the command, the number of its arguments, an option that waits for its value.
    local option=''
    for ((i = 1; i < COMP_CWORD; i++)); do
        local each=${COMP_WORDS[i]}
        if [[ -n $option ]]; then
            [[ $each == = ]] || option=''  # bash makes three words of --name=value
        elif [[ -z $dashes && $each == -- ]]; then
            dashes=1
        elif [[ -z $dashes && $each == -* ]]; then
            grep -qE -- "^ +(-[a-z], )?$each(, --[a-z-]+)? [A-Z]" <<<"$help" && option=$each
        elif [[ -z $command ]]; then
            command=$each
        else
            count=$((count + 1))
        fi
    done

    if [[ -n $option ]]; then
        [[ $word != = ]] || word=''
        _kestsc_value "$program" "$option" "$word"
    elif [[ -z $dashes && $word == -* ]]; then
        [[ -z $command ]] || help=$("$program" "$command" --help 2>/dev/null)
        _kestsc_offer "$word" < <(sed -nE 's/^  (-[a-z],|   ) (--[a-z-]*).*/\2/p' <<<"$help")
    elif [[ -z $command ]]; then
        _kestsc_offer "$word" < <(sed -n '/^Commands:/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p' <<<"$help")
    else
        local all signature
        all=$(_kestsc_signature "$program" "$command")
        if [[ -n $dashes && $all == *' [-- '* ]] && ((count > 0)); then
            compopt -o default 2>/dev/null
            return 0
        fi
        read -ra signature <<<"${all%% \[-- *}"
        local last=$((${#signature[@]} - 1))
        ((last >= 0)) || return 0
        local place=${signature[count < last ? count : last]}
        case $command:$place in
            install:NAME) ;;
            *:NAME* | *:'[NAME'*) ((count <= last)) || [[ $place == *...* ]] || return 0
                _kestsc_offer "$word" < <(_kestsc_services "$program") ;;
            # Another name may follow, too.
            *:STATE) _kestsc_offer "$word" < <(printf '%s\n' running stopped paused; _kestsc_services "$program") ;;
            *:CODE) _kestsc_offer "$word" < <(printf '%s\n' reload pause continue interrogate; _kestsc_services "$program") ;;
            *) compopt -o default 2>/dev/null ;;
        esac
    fi
}
complete -F _kestsc kestsc
