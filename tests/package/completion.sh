# What the completions offer, in bash or zsh: SHELL completion.sh FOLDER KESTSC AGENT, the folder of the completions and both programs.
folder=$1
state=$(mktemp -d)
trap 'rm -rf "$state"' EXIT
ln -s "$2" "$state/kestsc" && ln -s "$3" "$state/kest-agent" || exit 1
export PATH=$state:$PATH KEST_STATE_DIR=$state/services LC_ALL=C
kestsc install db /bin/true >/dev/null && kestsc install "web one" /bin/true >/dev/null || exit 1

# Prints what is offered for the last of the words.
if [ -n "${ZSH_VERSION-}" ]; then
    compadd() { [ "$1" != -- ] || shift; print -l -- "$@"; }
    _files() { echo FILES; }
    offered() { words=("$@"); CURRENT=$#; . "$folder/_$1" "$@"; }
else
    compopt() { echo FILES; }
    . "$folder/kestsc.bash"
    . "$folder/kest-agent.bash"
    offered() {
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        "_${1//-/_}" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
        [ ${#COMPREPLY[@]} = 0 ] || printf '%s\n' "${COMPREPLY[@]}" | sed 's/\\ / /g'
    }
fi

failed=0
expect() {
    local pattern=$1 found
    shift
    found=",$(offered "$@" | sort | tr '\n' ,)"
    [[ $found =~ $pattern ]] && return
    echo "$*: offered \"$found\", which does not match $pattern"
    failed=1
}

expect '^,config,control,delete,.*,run-all,start,start-all,status,.*,wait,' kestsc ''
expect '^,db,web one,$' kestsc status ''
expect '^,db,web one,$' kestsc status db ''
expect '^,$' kestsc config db ''
expect '^,db,paused,running,stopped,web one,$' kestsc wait db ''
expect '^,always,never,on-failure,$' kestsc config --restart ''
expect '^,continue,db,interrogate,pause,reload,web one,$' kestsc control db ''
expect '^,$' kestsc list ''
expect '^,$' kestsc install ''
expect '^,FILES,$' kestsc install name ''
expect '^,FILES,$' kestsc start --timeout 5 db -- -x
expect '^,db,web one,$' kestsc start --no-wait db ''
expect '^,auto,demand,disabled,$' kestsc config --start ''
expect '^,--force,--help,--json,--no-wait,--timeout,$' kestsc stop -
expect '^,db,web one,$' kestsc logs -n 3 ''
expect ',--inventory,.*--settings,' kest-agent --
expect '^,(FILES,)?$' kest-agent --settings ''
if [ -z "${ZSH_VERSION-}" ]; then
    expect '^,auto,$' kestsc config --start = a  # bash makes three words of --start=a
    expect '^,web one,$' kestsc status w
fi
exit $failed
