#!/bin/bash
# check_manual.sh CRANDLE MANPAGE COMPLETION VERSION
#
# The manual page and the bash completion are written by hand; this catches them drifting from
# the tool: every command and option that the help names must appear in both, the manual must
# carry the version, and the completion must offer what a user expects at each position.
set -u
crandle=$1 manual=$2 completion=$3 version=$4
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The manual with roff's escaped hyphens made plain.
manual_text=$(sed 's/\\-/-/g' "$manual")

# Commands: the unindented words under "Subcommands:" of --help-all, and look's own commands.
commands=$("$crandle" --help-all | awk '/^Subcommands:/ {on = 1; next} on && /^[a-z]/ {print $1}')
look_commands=$("$crandle" look --help | awk '/^Subcommands:/ {on = 1; next} on && /^  [a-z]/ {print $1}')
[[ $(wc -w <<<"$commands") -ge 6 ]] || fail "too few commands found in the help: $commands"
[[ $(wc -w <<<"$look_commands") -ge 2 ]] || fail "too few look commands found: $look_commands"

helps=("$("$crandle" --help)")
for command in $commands; do
  grep -q "^\.SS $command\b" <<<"$manual_text" || fail "the manual has no section for '$command'"
  grep -q "local commands=.*\b$command\b" "$completion" || fail "the completion lacks '$command'"
  helps+=("$("$crandle" "$command" --help)")
done
for command in $look_commands; do
  grep -q "^\.SS look $command\b" <<<"$manual_text" || fail "the manual has no section for 'look $command'"
  grep -q "\"$command pack\"\|\"show $command\"" "$completion" || fail "the completion lacks 'look $command'"
  helps+=("$("$crandle" look "$command" --help)")
done

# Options: every long option of every help, and the short ones spelled out beside them.
options=$(printf '%s\n' "${helps[@]}" | grep -o -- '^ *-[a-z],--[a-z-]*\|^ *--[a-z][a-z-]*' |
  tr ',' '\n' | tr -d ' ' | sort -u)
[[ $(wc -w <<<"$options") -ge 20 ]] || fail "too few options found in the help: $options"
for option in $options; do
  grep -q -- "$option\b" <<<"$manual_text" || fail "the manual does not mention $option"
  grep -q -- " $option\b\|\"$option\b" "$completion" || fail "the completion does not offer $option"
done

grep -q "^\.TH CRANDLE 1 .*\"crandle $version\"" "$manual" ||
  fail "the manual's title line does not carry version $version"
for status in 0 1 2; do
  grep -q "^\.B $status$" "$manual" || fail "the manual does not document exit status $status"
done

# The completion at work, with bash-completion's two helpers stood in for.
complete_at() {
  bash -c '
    _init_completion() { cur=${COMP_WORDS[COMP_CWORD]}; prev=${COMP_WORDS[COMP_CWORD-1]};
                         words=("${COMP_WORDS[@]}"); cword=$COMP_CWORD; }
    _filedir() { COMPREPLY=(FILES); }
    compopt() { :; }
    source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
    _crandle
    echo "${COMPREPLY[*]}"' completion "$completion" "$@"
}
expect() {
  local want=$1
  shift
  local got
  got=$(complete_at "$@")
  [[ $got == "$want" ]] || fail "completing '$*': got '$got', want '$want'"
}
expect "info apply eval look convert check plot formats" crandle ""
expect "apply" crandle ap
expect "--help --help-all" crandle --he
expect "-h --help --help-all --version --set --settings" crandle -
expect "formats" crandle --set a=b fo
expect "show pack" crandle look ""
expect "--guid" crandle look pack --gu
expect "--payload" crandle look show --pay
expect "FILES" crandle apply ""
expect "FILES" crandle apply look.cube in.exr ""
expect "--threads" crandle apply --thr
expect "half" crandle apply --depth h
expect "trilinear tetrahedral" crandle eval --interp ""
expect "cuda cuda:0" crandle apply --device cu
expect "ColorTransforms.EnableFloatLUTs=" crandle --set ColorTransforms.En
expect "FILES" crandle --settings ""
expect "" crandle apply --frames ""
expect "" crandle formats ""

if ((failures > 0)); then
  echo "$failures failures"
  exit 1
fi
echo "the manual and the completion cover $(wc -w <<<"$commands") commands and $(wc -w <<<"$options") options"
