#!/bin/bash
# Builds the Debian package of the service and checks it; prints where it lies.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release
(cd build/release && rm -f ./*.deb && cpack >/dev/null)
package=$(echo build/release/brisca-service_*.deb)
lintian --fail-on error "$package"
echo "package: $package"
