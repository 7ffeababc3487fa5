#!/usr/bin/env bash
# install_client.sh BUILD_DIR CLIENT_SOURCE SCRATCH_DIR
set -euo pipefail
build="$1" source="$2" scratch="$3"
rm -rf "$scratch"
mkdir -p "$scratch"
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
for f in include/veltrane.h lib/libveltrane.so lib/pkgconfig/veltrane.pc include/veltrane/veltrane_tlb.h; do
  [[ -e "$scratch/prefix/$f" ]] || { echo "missing after install: $f" >&2; exit 1; }
done
export PKG_CONFIG_PATH="$scratch/prefix/lib/pkgconfig"
# shellcheck disable=SC2046,SC2086
"${CXX:-g++}" ${CLIENT_FLAGS:-} "$source" -o "$scratch/client" $(pkg-config --cflags --libs veltrane)
# The rpath of the pkg-config flags finds the library: no LD_LIBRARY_PATH.
env -u LD_LIBRARY_PATH "$scratch/client"
