#!/usr/bin/env bash
# options_test.sh QUORL: bash completes, and the manual page explains, the options and the control
# commands that the exchange has, all of them and no other; and each option stands in a table of the
# README or of docs/.
set -euo pipefail
quorl=$1
cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.."
failed=0

complain() {
  printf 'FAILED: %s\n' "$*"
  failed=1
}

# offered WORDS...: what bash offers for the last of the words, sorted.
offered() {
  bash -c '. share/bash-completion/completions/quorl
    compopt() { :; }  # there is no completion under way that it could change
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
    _quorl "$1" "${@: -1}" "${@: -2:1}"
    printf "%s\n" "${COMPREPLY[@]}"' _ "$@" | sort
}

known=$(grep -oE '"--[a-z-]+"' src/driver/run_config.cpp | tr -d '"' | sort -u)
completed=$(offered quorl --)
in_page=$(sed -nE 's/^\.BI? (\\-\\-[^ ]+).*/\1/p' share/man/man1/quorl.1 | sed 's/\\//g' | sort -u)
diff <(printf '%s\n' "$known") <(printf '%s\n' "$completed") || complain 'completion is wrong'
diff <(printf '%s\n' "$known") <(printf '%s\n' "$in_page") || complain 'the page is wrong'
for option in $known; do
  grep -qF "| \`$option\`" README.md docs/*.md || complain "no table has $option"
done

commands=$({ sed -nE 's/^    \{"([a-z_]+)", .*/\1/p' src/bench/control_port.cpp && printf 'stats\nstop\n'; } |
  sort -u)
completed=$(. share/bash-completion/completions/quorl && printf '%s\n' "${_quorl_commands[@]}" | sort)
in_page=$(sed -n '/^\.SH CONTROL PORT/,/^A command/p' share/man/man1/quorl.1 |
  sed -nE 's/^\.B[IR]? ([a-z_]+).*/\1/p' | sort -u)
((${#commands} > 100)) || complain "the exchange's commands are not found: $commands"
diff <(printf '%s\n' "$commands") <(printf '%s\n' "$completed") || complain 'a command is not completed'
diff <(printf '%s\n' "$commands") <(printf '%s\n' "$in_page") || complain 'the page has other commands'

# Each is refused for its missing value, and never for itself; --quiet has none and lets the next by.
for option in $known; do
  words=("$option")
  wanted="$option needs a value"
  if [[ $option == --quiet ]]; then
    words+=(--no-such-option)
    wanted='unknown flag --no-such-option'
  fi
  status=0
  said=$(timeout 20 "$quorl" "${words[@]}" 2>&1) || status=$?
  [[ $status == 2 && $said == "$wanted" ]] || complain "quorl ${words[*]}: $status, $said"
done

[[ $(offered quorl --sn) == --snap-port ]] || complain 'an option begun is not completed'
[[ -z $(offered quorl --seed '') ]] || complain 'something is offered for a number'
[[ $(offered quorl --truth-out READM) == README.md ]] || complain 'no file is offered'
exit $failed
