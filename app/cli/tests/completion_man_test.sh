#!/usr/bin/env bash
# The completion scripts and the manual page that the build generates from
# the command definitions: bash loads the script and completes commands,
# nested commands, options and file names; zsh (when installed) loads its
# script; `man -l` renders the page with every command in it; and every
# command that `lumeo --help` lists is in all three.
set -u
lumeo=$1
build=${2:-}
here=$(cd "$(dirname "$0")" && pwd)
. "$here/checks.sh"
fail=0
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT

expect "bash script generated" 0 "complete -F _lumeo lumeo" "$lumeo" --generate-completion bash
expect "an unknown shell is a usage error" 2 "generate-completion bash\|zsh" "$lumeo" --generate-completion fish
"$lumeo" --generate-completion bash >"$dir/lumeo.bash"
"$lumeo" --generate-completion zsh >"$dir/_lumeo"
"$lumeo" --generate-man >"$dir/lumeo.1"
if [ -n "$build" ] && [ -d "$build/app/cli/generated" ]; then
  check "the build's bash script is current" cmp -s "$dir/lumeo.bash" "$build/app/cli/generated/lumeo.bash"
  check "the build's manual page is current" cmp -s "$dir/lumeo.1" "$build/app/cli/generated/lumeo.1"
fi

# complete WORDS...: what bash offers for the last word.
complete_words() {
  bash --norc --noprofile -c '
    source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
    _lumeo lumeo "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " "' _ "$dir/lumeo.bash" "$@"
}
check "bash loads the script" bash --norc --noprofile -c 'source "$1" && complete -p lumeo | grep -q _lumeo' _ "$dir/lumeo.bash"
check "completes a command" [ "$(complete_words lumeo li)" = "list " ]
check "completes every command" [ "$(complete_words lumeo '' | wc -w)" -ge 12 ]
check "completes a nested command" [ "$(complete_words lumeo tag re)" = "rename " ]
check "completes after a global option" [ "$(complete_words lumeo --home /tmp te)" = "template " ]
check "completes a command's options" [ "$(complete_words lumeo add --co)" = "--comment --comment-file " ]
check "global options after the command" [ "$(complete_words lumeo tag rename --j)" = "--json " ]
touch "$dir/photo-one.jpg" "$dir/photo-two.png"
check "a file option completes file names" [ "$(complete_words lumeo add --photo "$dir/photo-")" = "$dir/photo-one.jpg $dir/photo-two.png " ]
check "a value option offers nothing" [ -z "$(complete_words lumeo add --at '' | tr -d ' ')" ]

if command -v zsh >/dev/null; then
  check "zsh parses its script" zsh -n "$dir/_lumeo"
  check "zsh loads the script with compinit" zsh -f -c 'fpath=("$1" $fpath); autoload -Uz compinit; compinit -u -D; (( $+_comps[lumeo] ))' _ "$dir"
else
  echo "skip zsh checks: zsh is not installed"
fi

page=$(MANWIDTH=100 man -l "$dir/lumeo.1" 2>"$dir/man.err")
check "man -l renders the page" [ -n "$page" ]
check "man -l says nothing on standard error" [ ! -s "$dir/man.err" ]
check "groff finds no mistakes" [ -z "$(groff -man -ww -z "$dir/lumeo.1" 2>&1)" ]
for section in NAME SYNOPSIS "GLOBAL OPTIONS" COMMANDS "EXIT STATUS" ENVIRONMENT; do
  check "the page has $section" grep -q "^$section" <<<"$page"
done
check "options are spelled out" grep -q -- "--comment-file FILE" <<<"$page"

# Every command in --help is in the completion and the page.
commands=$("$lumeo" --help | sed -n '/^Subcommands:/,$p' | awk 'NR > 1 && /^  [a-z]/ {print $1}')
check "--help lists the commands" [ "$(wc -w <<<"$commands")" -ge 12 ]
for cmd in $commands; do
  grep -q "'lumeo $cmd'" "$dir/lumeo.bash" || { echo "FAIL $cmd missing from the bash script"; fail=1; }
  grep -q "'lumeo $cmd'" "$dir/_lumeo" || { echo "FAIL $cmd missing from the zsh script"; fail=1; }
  grep -q "^   lumeo $cmd" <<<"$page" || { echo "FAIL $cmd missing from the manual page"; fail=1; }
done

# cmake --install puts all three where bash-completion, zsh and man look.
if [ -n "$build" ] && [ -f "$build/cmake_install.cmake" ]; then
  cmake --install "$build" --prefix "$dir/inst" >/dev/null
  for file in share/bash-completion/completions/lumeo share/zsh/vendor-completions/_lumeo share/man/man1/lumeo.1 \
    share/lumeo/emotions.plist share/lumeo/mood.plist bin/lumeo; do
    check "installed $file" [ -s "$dir/inst/$file" ]
  done
fi

[ $fail -eq 0 ] && echo "completion and manual page: all checks passed"
exit $fail
