#!/bin/sh
# Pages of the manual from what gk says of itself: gk(1), and one for each command, gk-run(1).
# Usage: man-pages.sh GK FOLDER
set -eu
gk=$1
folder=$2
mkdir -p "$folder"
version=$("$gk" --version)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# page NAME TEXT COMMAND...: asks through a program of that name.
page() {
  name=$1
  text=$2
  shift 2
  {
    echo '#!/bin/sh'
    echo "exec '$gk' $* --help"
  } >"$work/$name"
  chmod +x "$work/$name"
  help2man --no-info --no-discard-stderr --name "$text" --version-string "$version" \
    --source gksensors --manual "gksensors" "$work/$name" |
    sed "s/^\.TH GK /.TH $(echo "$name" | tr '[:lower:]' '[:upper:]') /; s/^gk \\\\- /$name \\\\- /" >"$folder/$name.1"
}

page gk "sensor modules of a small humanoid robot"
"$gk" --help | sed -n '/^Run:/,/^Examples:/s/^  \([a-z]*\)  *\(.*\)/\1 \2/p' | while read -r command text; do
  page "gk-$command" "$text" "$command"
done
