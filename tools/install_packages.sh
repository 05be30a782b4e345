#!/usr/bin/env bash
# Installs the packages of tools/packages.txt that are missing. Where none is, it needs neither network nor rights.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

wanted_packages() {
  grep -v '^#' packages.txt | grep .
}

missing_packages() {
  LC_ALL=C comm -23 <(wanted_packages | LC_ALL=C sort) \
    <(dpkg-query -W -f '${db:Status-Status} ${Package}\n' 2> /dev/null | sed -n 's/^installed //p' | LC_ALL=C sort -u)
}

as_root() {
  if [ "$(id -u)" = 0 ]; then
    "$@"
  elif command -v sudo > /dev/null; then
    sudo "$@"
  else
    echo "install these packages as root, or install sudo:" "${missing[@]}" >&2
    exit 1
  fi
}

apt() {
  as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=600 -o Dpkg::Use-Pty=0 \
    -o Acquire::Retries=3 "$@" < /dev/null
}

mapfile -t missing < <(missing_packages)
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing:" "${missing[@]}" >&2
  apt update
  apt install --yes --no-install-recommends "${missing[@]}"
fi
