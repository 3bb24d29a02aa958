#!/bin/sh
# Runs the commands of a document: every ```sh block, in order, in one
# scratch folder with the examples at examples/ and the tool on the PATH as
# vrncal.  Each line of the ```text block that follows a command block (but
# "...") must be a line of what the block printed.  Fails at the first
# command that fails or the first line missing.
#
#   run_doc.sh TOOL DOCUMENT EXAMPLES
set -eu
tool=$1 doc=$2 examples=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/blocks"
ln -s "$tool" "$work/bin/vrncal"
ln -s "$examples" "$work/examples"
blocks=$(awk -v dir="$work/blocks" '
    /^```sh$/   { n++; mode = "sh"; next }
    /^```text$/ { mode = n > 0 ? "text" : ""; next }
    /^```/      { mode = ""; next }
    mode == "sh"   { print > (dir "/" n ".sh") }
    mode == "text" { print > (dir "/" n ".txt") }
    END { print n + 0 }' "$doc")
cd "$work"
k=1
while [ "$k" -le "$blocks" ]; do
    if ! PATH="$work/bin:$PATH" sh -e "blocks/$k.sh" > "blocks/$k.out" 2>&1; then
        echo "$doc: command block $k failed:"; cat "blocks/$k.sh" "blocks/$k.out"; exit 1
    fi
    if [ -f "blocks/$k.txt" ]; then
        while IFS= read -r line; do
            [ "$line" = "..." ] && continue
            if ! grep -qxF -- "$line" "blocks/$k.out"; then
                echo "$doc: command block $k did not print: $line"; echo "--- it printed:"; cat "blocks/$k.out"; exit 1
            fi
        done < "blocks/$k.txt"
    fi
    k=$((k + 1))
done
echo "$doc: $blocks command blocks ran as shown"
