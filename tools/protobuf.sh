#!/usr/bin/env bash
# libprotobuf for the module: static, position-independent and hidden, from the distribution's own source package.
# The distribution's archive is not position-independent, and the module must not share a registry with its host.
#
#   tools/protobuf.sh prefix   prints where the build of this machine's version lies, built or not
#   tools/protobuf.sh build    builds it there, unless it is there already
set -euo pipefail

cache="${XDG_CACHE_HOME:-$HOME/.cache}/libryl_netdb"
compile_flags="-fno-gnu-unique -ffunction-sections -fdata-sections"

source_version() {
  dpkg-query -W -f '${source:Version}' protobuf-compiler
}

# One folder for each thing that the build depends on: this script, the source and the compiler.
prefix() {
  local stamp
  stamp=$({ cat "${BASH_SOURCE[0]}"; source_version; g++ -dumpfullversion -dumpmachine; } | sha256sum | cut -c 1-16)
  echo "$cache/protobuf-$stamp"
}

# Writes the machine's own package sources, asked for source packages.
write_source_parts() {
  local parts=$1 file
  mkdir -p "$parts"
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
    [ -f "$file" ] || continue
    sed -n 's/^[[:space:]]*deb\(-src\)\?[[:space:]]/deb-src /p' "$file" | sort -u > "$parts/$(basename "$file" .list).list"
  done
  for file in /etc/apt/sources.list.d/*.sources; do
    [ -f "$file" ] || continue
    sed 's/^Types:.*/Types: deb-src/I' "$file" > "$parts/$(basename "$file")"
  done
}

# Fetches and unpacks the source package into the folder `work`, with package lists of its own: /etc/apt and the
# machine's lists stay as they are.
fetch_source() {
  local work=$1 apt
  write_source_parts "$work/apt/parts"
  mkdir -p "$work/apt/lists/partial" "$work/apt/cache/archives/partial" "$work/source"
  apt=(apt-get -qq -o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$work/apt/parts"
       -o Dir::State::Lists="$work/apt/lists" -o Dir::Cache="$work/apt/cache"
       -o APT::Sandbox::User=root -o Acquire::Languages=none -o Acquire::Retries=3)
  # A third-party source of the machine may offer no source packages; only protobuf's has to.
  "${apt[@]}" update || echo "protobuf: some package sources have no source packages" >&2
  (cd "$work/source" && "${apt[@]}" source "protobuf=$(source_version)")
}

compile() {
  local work=$1 prefix=$2 source launcher=()
  source=$(find "$work/source" -mindepth 1 -maxdepth 1 -type d -name 'protobuf-*')
  if command -v ccache > /dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
  fi
  cmake -S "$source" -B "$work/build" -G Ninja "${launcher[@]}" -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ \
    -DCMAKE_CXX_FLAGS="$compile_flags -ffile-prefix-map=$source/=" -DCMAKE_CXX_STANDARD=17 \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON -DCMAKE_CXX_VISIBILITY_PRESET=hidden -DCMAKE_VISIBILITY_INLINES_HIDDEN=ON \
    -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib -Dprotobuf_BUILD_SHARED_LIBS=OFF -Dprotobuf_BUILD_TESTS=OFF \
    -Dprotobuf_BUILD_PROTOC_BINARIES=OFF -Dprotobuf_WITH_ZLIB=OFF &&
    cmake --build "$work/build" &&
    cmake --install "$work/build"
}

# The folder gets its name when it is whole, so that a build that was cut off is never taken for one.
build() {
  local prefix work log
  prefix=$(prefix)
  [ -f "$prefix/lib/libprotobuf.a" ] && return
  mkdir -p "$cache"
  exec 9> "$cache/protobuf.lock"
  flock 9
  [ -f "$prefix/lib/libprotobuf.a" ] && return
  work="$cache/protobuf-build"
  log="$cache/protobuf.log"
  echo "protobuf: building $(source_version) once, for this and every later build" >&2
  rm -rf "$work" "$prefix.new"
  mkdir -p "$work"
  if ! { fetch_source "$work" && compile "$work" "$prefix.new"; } > "$log" 2>&1 9>&-; then
    tail -n 30 "$log" >&2
    echo "protobuf: the build failed; the whole log is $log" >&2
    return 1
  fi
  mv "$prefix.new" "$prefix"
  rm -rf "$work"
}

case "${1:-}" in
  prefix) prefix ;;
  build) build ;;
  *) echo "usage: tools/protobuf.sh prefix|build" >&2; exit 2 ;;
esac
