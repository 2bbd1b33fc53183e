#!/usr/bin/env bash
# Installs the peers, builds the benchmarks, runs them interleaved on one core, and prints each row's ratio and goal.
# scripts/bench.sh [REGEX]; QLN_BENCH_ROUNDS sets the rounds whose ratios' median counts (default 31).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh libbenchmark-dev libgstreamer-plugins-bad1.0-dev libpugixml-dev rapidjson-dev
cmake --preset bench >/dev/null
cmake --build build/bench --target qln_bench --parallel "$(nproc)"
taskset -c 0 build/bench/bench/qln_bench --benchmark_filter="${1:-.}" --benchmark_min_time=0.02 \
  --benchmark_repetitions="${QLN_BENCH_ROUNDS:-31}" --benchmark_enable_random_interleaving=true \
  --benchmark_out=build/bench/result.json --benchmark_out_format=json >/dev/null
python3 bench/report.py build/bench/result.json
