#!/usr/bin/env bash
# The packages in build/package do on a bare Debian 12 what they are for: quorl installs with what it
# depends on, serves, is told of by man and completed by bash, and leaves nothing behind; a client
# builds against libquorl-client-dev. Needs root, and a mirror of Debian 12 that apt knows of.
#
#   tests/package/bare_debian_test.sh
set -euo pipefail
root=$(cd -- "$(dirname -- "$(readlink -f -- "${BASH_SOURCE[0]}")")/../.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
cd -- "$root"

# In namespaces of its own, so that no mount and no process outlives it.
if [[ ${1-} != inside ]]; then
  install_missing debootstrap iproute2 cmake ninja-build g++
  mkdir -p build
  bare=$(mktemp -d "$root/build/bare.XXXXXX")
  trap 'rm -rf --one-file-system "$bare"' EXIT
  timeout --kill-after=10 900 \
    unshare --mount --pid --fork --kill-child --mount-proc "$0" inside "$bare"
  exit
fi
bare=$2
failed=0
version=$(sed -nE 's/^project\(quorl VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
package=$(ls build/package/quorl_"$version"_*.deb)
client_package=$(ls build/package/libquorl-client-dev_"$version"_*.deb)

echo "-- a client against $client_package"
dpkg -x "$client_package" "$bare/client"
example=$bare/client/usr/share/doc/libquorl-client-dev/examples/client
quietly cmake -G Ninja -S "$example" -B "$bare/client/build" -DCMAKE_PREFIX_PATH="$bare/client/usr"
quietly cmake --build "$bare/client/build"
dpkg -x "$package" "$bare/exchange"
"$bare/client/build/client-example" "$bare/exchange/usr/bin/quorl"
rm -r "${bare:?}"/*

echo '-- a bare Debian 12'
# Where from is this machine's affair.
# shellcheck disable=SC2016  # apt puts these in
mirror=$(apt-get indextargets --format '$(CODENAME) $(COMPONENT) $(REPO_URI)' 'Created-By: Packages' |
  awk '$1 == "bookworm" && $2 == "main" { print $3; exit }')
[[ -n $mirror ]] || { echo 'apt knows of no mirror of Debian 12' >&2; exit 1; }
quietly debootstrap --variant=minbase bookworm "$bare" "$mirror"
apt-config dump Acquire >"$bare/etc/apt/apt.conf.d/host"
cp /etc/resolv.conf /etc/hosts "$bare/etc/"
if [[ $mirror == https:* ]]; then  # the bare system trusts nobody yet
  mkdir -p "$bare/etc/ssl/certs"
  cp -L /etc/ssl/certs/ca-certificates.crt "$bare/etc/ssl/certs/"
fi
mount -t proc proc "$bare/proc"
mount -t devpts -o ptmxmode=0666 devpts "$bare/dev/pts"  # the ladder wants a terminal
# shellcheck disable=SC2317  # called by quietly
in_bare() {
  env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    chroot "$bare" "$@" </dev/null
}
quietly in_bare apt-get update
quietly in_bare apt-get install -y --no-install-recommends man-db bash-completion

echo "-- $package"
cp "$package" "$bare/quorl.deb"
quietly in_bare apt-get install -y --no-install-recommends /quorl.deb
cp tests/package/on_bare_debian.sh tests/package/with_other_programs.sh "$bare/"
# run_alone SCRIPT...: in the bare system, with a network of its own.
run_alone() {
  unshare --net bash -c 'ip link set lo up && ip route add 224.0.0.0/4 dev lo && exec "$@"' _ \
    env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
    chroot "$bare" bash "$@" </dev/null || failed=1
}
run_alone /on_bare_debian.sh "$version"

echo '-- with the programs of others'
quietly in_bare apt-get install -y --no-install-recommends g++ cmake make libquickfix-dev tshark
run_alone /with_other_programs.sh

echo '-- what is left of it'
quietly in_bare apt-get purge -y quorl
rm -rf "$bare/quorl.deb" "$bare/tmp"/*
left=$(find "$bare" -xdev -iname '*quorl*' ! -path '*/var/log/*')
printf '%s\n' "${left:-nothing}"
[[ -z $left ]] || failed=1
exit $failed
