#!/usr/bin/env bash
# The version of one producer, from the one place where it stands:  version_of.sh <exact|standard> <source tree>
case "${1:?producer}" in
    exact) pattern='^project\(zr_u3v_tl VERSION ([0-9.]+).*' ;;
    standard) pattern='^set\(ZR_STANDARD_VERSION ([0-9.]+)\)$' ;;
    *) exit 2 ;;
esac
sed -nE "s/$pattern/\\1/p" "${2:?source tree}/CMakeLists.txt" | grep .
