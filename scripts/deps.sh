#!/usr/bin/env bash
# Makes sure the Debian packages that a step needs are installed.
#   source scripts/deps.sh; mox_require_packages pkg...
# Run as root it installs what is missing with apt-get; otherwise it prints the
# exact apt-get line and fails.

mox_missing_packages() {
  local missing=()
  local pkg
  for pkg in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed"; then
      missing+=("$pkg")
    fi
  done
  echo "${missing[@]}"
}

mox_require_packages() {
  local missing
  missing=$(mox_missing_packages "$@")
  if [ -z "$missing" ]; then
    return 0
  fi
  if [ "$(id -u)" -eq 0 ]; then
    echo "Installing missing packages: $missing"
    export DEBIAN_FRONTEND=noninteractive
    # tshark asks whether non-root users may capture; nobody is there to answer.
    if command -v debconf-set-selections >/dev/null; then
      echo "wireshark-common wireshark-common/install-setuid boolean false" | debconf-set-selections
    fi
    apt-get update -qq
    # shellcheck disable=SC2086
    apt-get install -y -qq --no-install-recommends $missing
    return $?
  fi
  echo "Missing Debian packages. Install them with:" >&2
  echo "  sudo apt-get install -y $missing" >&2
  return 1
}

# Packages for building and running the module, its tools and its tests on the host
# (python3-jsonschema checks the phone simulator's catalogue against its schema;
# help2man writes the tools' manual pages, man-db renders them in their test;
# libcurl4-openssl-dev gives the phone simulator its online sources;
# libpcap-dev writes and reads the link captures of mox lookup and mox-phone;
# libutf8proc-dev measures the tools' texts in terminal cells;
# libdlt-dev sends the debug output to a DLT daemon, HB_DBG_OUTPUT=dlt).
MOX_HOST_PACKAGES="cmake ninja-build g++ googletest libcli11-dev nlohmann-json3-dev libbenchmark-dev pkg-config libcdio-dev libdiscid-dev libcue-dev libsndfile1-dev python3-jsonschema help2man man-db libcurl4-openssl-dev libpcap-dev libutf8proc-dev libdlt-dev"
# Opening the link captures with the Wireshark dissector (tools/wireshark),
# and a tcpdump of a tcp: lookup that the dissector finds by its heuristic.
MOX_WIRESHARK_PACKAGES="tshark tcpdump"
# The DLT test of the debug output: a private dlt-daemon, read by dlt-receive.
MOX_DLT_PACKAGES="dlt-daemon dlt-tools"
# Making the Debian packages: dpkg-shlibdeps (dpkg-dev) finds their
# dependencies, in the binaries that file(1) recognises.
MOX_PACKAGE_PACKAGES="dpkg-dev file"
# Memory checks of whole lookups.
MOX_VALGRIND_PACKAGES="valgrind"
# The 32-bit ARM cross build and its emulator.
MOX_ARM_PACKAGES="g++-arm-linux-gnueabihf qemu-user"
# libFuzzer targets.
MOX_CLANG_PACKAGES="clang libclang-rt-14-dev"
# The runnable examples of the README and docs/, run by Debian's cram.
MOX_DOCS_PACKAGES="python3-cram dlt-daemon dlt-tools tshark"
# The format check.
MOX_FORMAT_PACKAGES="clang-format"
