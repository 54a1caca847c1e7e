#!/bin/sh
# What the scripts of gk completion complete, in the shells themselves.
# Usage: completion_test.sh GK ZSH FISH
set -eu
gk=$1
zsh=$2
fish=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# A host with two keys stands behind the program.
mkdir bin
cat >bin/gk <<EOF
#!/bin/sh
case "\$1 \$2" in
"names keys") printf 'Board/Temperature\nBoard/Voltage\n' ;;
*) exec "$gk" "\$@" ;;
esac
EOF
chmod +x bin/gk
PATH=$folder/bin:$PATH
gk completion zsh >gk.zsh
gk completion fish >gk.fish
touch walk.csv

failures=0
# expect WHAT EXPECTED FOUND
expect() {
  [ "$2" = "$3" ] || {
    echo "$1: expected \"$2\", but it was \"$3\""
    failures=$((failures + 1))
  }
}

# in_zsh WORD...: what is offered for the last word. What belongs to zsh's own completion is played
# here: it works at a terminal only.
in_zsh() {
  "$zsh" -f -c '
    compdef() { }
    _describe() { local all=$argv[-1]; print -l -- ${(P)all} }
    compadd() { shift; print -l -- $@ }
    _files() { print -l -- *.csv }
    source ./gk.zsh
    words=("$@") CURRENT=$#
    _gk | while read -r line; do
      [[ $line != $words[CURRENT]* ]] || print -r -- $line
    done' zsh "$@" | tr '\n' ' '
}
in_fish() {
  HOME=$folder "$fish" --no-config -c "source gk.fish; complete -C '$*'" | tr '\t\n' ': '
}

expect "zsh, a command" "modules:$("$gk" --help | sed -n 's/^ *modules  *//p') " "$(in_zsh gk modu)"
expect "zsh, an option" "--interval " "$(in_zsh gk top --int)"
expect "zsh, a key" "Board/Temperature Board/Voltage " "$(in_zsh gk get Board)"
expect "zsh, a file" "walk.csv " "$(in_zsh gk replay wa)"
expect "zsh, a shell" "zsh " "$(in_zsh gk completion z)"
expect "zsh, a command of the fleet" "list " "$(in_zsh gk fleet l)"
expect "fish, a command" "modules:$("$gk" --help | sed -n 's/^ *modules  *//p') " "$(in_fish gk modu)"
expect "fish, an option" "--interval " "$(in_fish gk top --int)"
expect "fish, a key" "Board/Temperature Board/Voltage " "$(in_fish gk get Board)"
expect "fish, a file" "walk.csv " "$(in_fish gk replay wa)"
expect "fish, a shell" "zsh " "$(in_fish gk completion z)"
[ $failures -eq 0 ]
