#!/usr/bin/env bash
# Runs a fuzzing campaign: fuzz/run.sh TARGET SECONDS [libFuzzer flags...]
#
# TARGET is a target's short name (base64, reader, ldif_line, ldif_record,
# hash, ...: fuzz/<TARGET>_fuzzer.cc). Builds build-fuzz/ with clang and
# -DQUILLOMAT_FUZZ=ON when it is missing, then builds the target and runs it
# for SECONDS seconds in one process. The checked-in seed corpus
# fuzz/corpus/TARGET/ is read but never written: new inputs go to the scratch
# corpus build-fuzz/fuzz/corpus-TARGET/, which later campaigns start from,
# and any input that fails to build-fuzz/fuzz/artifacts-TARGET/. The target's
# dictionary fuzz/TARGET.dict and its flags in fuzz/TARGET.options (one per
# line, # starts a comment) are used when they exist; flags given after
# SECONDS come last and win. Prints the executions, executions per second,
# coverage (cov: edges, ft: features) and corpus size at the end; the whole
# log is kept in build-fuzz/fuzz/TARGET.log. Exits non-zero when the target
# found a failure.
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -lt 2 ]; then
  echo "usage: fuzz/run.sh TARGET SECONDS [libFuzzer flags...]" >&2
  exit 2
fi
target=$1
seconds=$2
shift 2
[ -f "fuzz/${target}_fuzzer.cc" ] || { echo "fuzz/run.sh: no target fuzz/${target}_fuzzer.cc" >&2; exit 2; }

build=build-fuzz
if [ ! -f "$build/build.ninja" ]; then
  CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUILLOMAT_FUZZ=ON
fi
cmake --build "$build" --target "${target}_fuzzer" -- -j2

scratch=$build/fuzz/corpus-$target
artifacts=$build/fuzz/artifacts-$target
log=$build/fuzz/$target.log
mkdir -p "$scratch" "$artifacts"

flags=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$artifacts/")
[ -f "fuzz/$target.dict" ] && flags+=(-dict="fuzz/$target.dict")
if [ -f "fuzz/$target.options" ]; then
  while read -r line; do
    line=${line%%#*}
    for flag in $line; do flags+=("$flag"); done
  done < "fuzz/$target.options"
fi

export VSX_LDAP_MESGDIR=${VSX_LDAP_MESGDIR:-$PWD/$build/share/quillomat/mesg}
status=0
"$build/fuzz/${target}_fuzzer" "${flags[@]}" "$@" "$scratch" "fuzz/corpus/$target" \
  > "$log" 2>&1 || status=$?

# libFuzzer's last status line ("#N DONE cov: ... ft: ... corp: ...") and its
# final statistics.
last=$(grep -E '^#[0-9]+' "$log" | tail -n 1 || true)
executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
per_second=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
cov=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<< "$last")
ft=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<< "$last")
corpus=$(sed -n 's/.* corp: \([0-9]*\/[0-9]*[a-zA-Z]*\).*/\1/p' <<< "$last")
echo "$target: executions ${executions:-?}, exec/s ${per_second:-?}, cov ${cov:-?}, ft ${ft:-?}, corpus ${corpus:-?}"
if [ "$status" -ne 0 ]; then
  echo "$target: the target failed (status $status); see $log and $artifacts/" >&2
  grep -E 'ERROR|check failed|SUMMARY' "$log" | head -n 5 >&2 || true
fi
exit "$status"
