#!/usr/bin/env bash
# The checks of `./dev lint`, each to its end, so that one run shows all that is wrong. The presets release and windows
# are configured before.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

sources() {
  git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h' '*.ipp' '*.def'
}

scripts() {
  git grep -l --untracked '^#!.*bash' -- . ':!*.md'
}

format() {
  sources | xargs --no-run-if-empty --max-args=16 --max-procs="$(nproc)" clang-format --dry-run -Werror
}

script_syntax() {
  scripts | xargs --no-run-if-empty --max-args=1 bash -n
}

windows() {
  cmake --build --preset windows
}

failed=()
check() {
  local name=$1 begin=$SECONDS
  shift
  if "$@"; then
    echo "lint $name: clean, $((SECONDS - begin)) s"
  else
    echo "lint $name: failed, $((SECONDS - begin)) s"
    failed+=("$name")
  fi
}

check tree tools/check_tree.py
check scripts script_syntax
check format format
check tidy tools/tidy.py build/release
check windows windows
if [ ${#failed[@]} -gt 0 ]; then
  echo "lint: failed:" "${failed[@]}" >&2
  exit 1
fi
