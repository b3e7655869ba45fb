#!/bin/bash
# make_packages.sh BUILD: the packages of BUILD, in its folder packaging/packages, for the tests beside this file.
set -euo pipefail
rm -rf "$1/packaging/packages"
cpack --config "$1/CPackConfig.cmake" -B "$1/packaging/packages"
