#!/usr/bin/env bash
# The package test: builds the Debian package, unpacks it into a scratch folder (it never installs
# anything system-wide), and checks it from there as a user and a host programmer would see it:
# its declared dependencies, udmlgen and a host program built against the unpacked library both
# reproduce the sample's expected UDML, the man page shows the options, bash completion offers
# them, and pkg-config and find_package both find the library.
# Usage: package-test.sh [BUILD_DIR]   (a configured build folder, build by default)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
build=$(cd "${1:-build}" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
fail() { echo "package-test: $*" >&2; exit 1; }
same_as_expected() { # what, output file
  cmp -s "$root/examples/sample/sales.expected" "$2" && return
  diff -u "$root/examples/sample/sales.expected" "$2" | head -20 >&2
  fail "$1 does not reproduce examples/sample/sales.expected"
}

echo "== package: build, unpack, check"
rm -f "$build"/package/*.deb
cmake --build "$build" --target package -j "${JOBS:-$(nproc)}" >"$scratch/cpack.log" 2>&1 ||
  { tail -30 "$scratch/cpack.log" >&2; fail "building the package failed"; }
deb=$(ls "$build"/package/*.deb)
dpkg-deb -x "$deb" "$scratch/root"
usr=$scratch/root/usr

control=$(dpkg-deb -I "$deb")
depends=$(sed -n 's/^ Depends: //p' <<<"$control")
recommends=$(sed -n 's/^ Recommends: //p' <<<"$control")
names() { tr ',' '\n' <<<"$1" | sed 's/^ *//; s/ .*//'; } # package names of a relation field
for package in unixodbc libodbc2 libstdc++6; do
  names "$depends" | grep -qxF "$package" || fail "Depends lacks $package: $depends"
done
for package in odbc-postgresql odbc-mariadb libsqliteodbc; do
  names "$recommends" | grep -qxF "$package" || fail "Recommends lacks $package: $recommends"
done
version=$(dpkg-deb -f "$deb" Version)

library=$(ls "$usr"/lib/libudmlodbcgen.so.*.*)
soname=$(objdump -p "$library" | awk '$1 == "SONAME" {print $2}')
[ -n "$soname" ] && [ -e "$usr/lib/$soname" ] || fail "the library's SONAME '$soname' names no file of the package"

connection=$(bash scripts/sample-db.sh "$scratch/sales.db")
loaded=$(ldd "$usr/bin/udmlgen" | awk '$1 ~ /^libudmlodbcgen/ {print $3}')
[ "$(realpath "$loaded")" = "$(realpath "$library")" ] ||
  fail "the unpacked udmlgen loads '$loaded', not the unpacked library"
"$usr/bin/udmlgen" --connect "$connection" --database Sales >"$scratch/udmlgen.udml"
same_as_expected "the unpacked udmlgen" "$scratch/udmlgen.udml"
if "$usr/bin/udmlgen" --help | grep -q -- '--version'; then
  "$usr/bin/udmlgen" --version | grep -qF "$version" || fail "udmlgen --version does not say $version"
fi

# Every option --help lists must be on the man page and offered by the completion.
options=$("$usr/bin/udmlgen" --help | grep -oE -- '^ +(-[a-zA-Z],? ?)?--[a-z][a-z-]*' | grep -oE -- '--[a-z][a-z-]*' | sort -u)
page=$(MANWIDTH=200 man -l "$usr/share/man/man1/udmlgen.1" 2>/dev/null)
completion=$(bash -c 'source "$1"; COMP_WORDS=("$2" --); COMP_CWORD=1; _udmlgen; printf "%s\n" "${COMPREPLY[@]}"' \
  _ "$usr/share/bash-completion/completions/udmlgen" "$usr/bin/udmlgen")
for option in $options; do
  grep -qF -- "$option" <<<"$page" || fail "the man page lacks $option"
  grep -qxF -- "$option" <<<"$completion" || fail "bash completion does not offer $option"
done

# The host program, built twice against the unpacked tree alone: through pkg-config and through
# find_package. Either must reproduce the sample.
export PKG_CONFIG_PATH=$usr/lib/pkgconfig
[ "$(pkg-config --modversion udmlodbcgen)" = "$version" ] || fail "pkg-config gives another version than $version"
# shellcheck disable=SC2046
g++ -std=c++17 -Wall -Wextra -Werror examples/cpp/main.cpp $(pkg-config --cflags --libs udmlodbcgen) \
  -Wl,-rpath,"$usr/lib" -o "$scratch/sales-udml-pc"
"$scratch/sales-udml-pc" "$connection" Sales >"$scratch/pkg-config.udml"
same_as_expected "the example built through pkg-config" "$scratch/pkg-config.udml"

cmake -S examples/cpp -B "$scratch/example" -Dudmlodbcgen_DIR="$usr/lib/cmake/udmlodbcgen" >/dev/null
cmake --build "$scratch/example" >/dev/null
"$scratch/example/sales-udml" "$connection" Sales >"$scratch/find_package.udml"
same_as_expected "the example built through find_package" "$scratch/find_package.udml"
echo "== package $(basename "$deb"): dependencies, udmlgen, man page, completion, pkg-config and find_package all pass"
