# Builds the libFuzzer targets of bench/fuzz/ (preset "fuzz", clang) and
# runs them for a bounded time. Sourced by scripts/test and scripts/fuzz,
# after common.sh.

ORVANE_FUZZ_TARGETS=(fields_fuzzer request_fuzzer config_fuzzer menu_fuzzer proxy_fuzzer)

build_fuzz_targets() {
  cd "$ORVANE_ROOT"
  cmake --preset fuzz >/dev/null
  cmake --build --preset fuzz --target "${ORVANE_FUZZ_TARGETS[@]}"
}

# run_fuzz_target TARGET SECONDS: a fixed seed, the target's seed corpus
# (read only) and dictionary, new inputs in a scratch folder. A crash, a
# broken check or a hang (10 s for one input) fails it; the input that did
# it is kept in build/fuzz/findings/.
run_fuzz_target() {
  local target="$1" seconds="$2"
  local bin="$ORVANE_ROOT/build/fuzz/fuzz/$target"
  local work findings="$ORVANE_ROOT/build/fuzz/findings"
  work="$(mktemp -d)"
  mkdir -p "$work/corpus" "$findings"
  echo "fuzz: $target for ${seconds}s"
  if "$bin" -seed=1 -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2560 -print_final_stats=1 \
      -dict="$ORVANE_ROOT/bench/fuzz/$target.dict" -artifact_prefix="$findings/$target-" \
      "$work/corpus" "$ORVANE_ROOT/bench/fuzz/corpus/$target" >"$work/log" 2>&1; then
    grep -E '^stat::number_of_executed_units|^#[0-9]+ *DONE' "$work/log" | sed "s/^/fuzz: $target: /"
    rm -rf "$work"
    return 0
  fi
  tail -n 60 "$work/log" >&2
  echo "fuzz: $target FAILED; the input is in $findings/, the whole log in $work/log" >&2
  return 1
}

# Every target, `total` seconds shared evenly among them (at least 1 s
# each; 60 s in all by default); fails at the first target that fails.
fuzz_smoke() {
  local total="${1:-60}" target seconds
  seconds=$(( total / ${#ORVANE_FUZZ_TARGETS[@]} ))
  [ "$seconds" -ge 1 ] || seconds=1
  build_fuzz_targets
  for target in "${ORVANE_FUZZ_TARGETS[@]}"; do
    run_fuzz_target "$target" "$seconds" || return 1
  done
}
