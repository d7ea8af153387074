#!/usr/bin/env bash
# The whole test suite: installs what is missing, checks formatting and clang-tidy, builds the
# optimised and the sanitizer configurations with warnings as errors, gives the parsers of
# untrusted backup data a bounded fuzzing run, starts the application offscreen, and runs CTest on both
# builds (the window tests among them, on the offscreen platform). Fast on a second run: ccache and the build folders stay.
set -euo pipefail
cd "$(dirname "$0")/.."
tools/install-deps.sh

jobs=$(nproc 2>/dev/null || sysctl -n hw.ncpu)
fuzz_seconds=${NUVREL_FUZZ_SECONDS:-60}
status=0

step() { printf '\n== %s\n' "$*"; }

step "Formatting"
cmake --preset default -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset default --target format-check || status=1

step "Optimised build"
cmake --build --preset default -j "$jobs"

step "The application starts and shows its window (offscreen)"
# Several times: work the window starts at once must not race the quit.
for run in 1 2 3 4 5 6 7 8; do
  smoke_home=$(mktemp -d)
  HOME="$smoke_home" XDG_CONFIG_HOME="$smoke_home" QT_QPA_PLATFORM=offscreen NUVREL_QUIT_AFTER_SHOW=1 \
    build/default/src/app/nuvrel || { echo "nuvrel did not start and quit cleanly (run $run)"; status=1; }
  rm -rf "$smoke_home"
done

step "clang-tidy"
cmake --build --preset default --target tidy || status=1

step "Sanitizer build (AddressSanitizer, UndefinedBehaviorSanitizer)"
cmake --preset asan -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset asan -j "$jobs"

step "Fuzzing the parsers of untrusted data"
cmake --preset fuzz -DNUVREL_WERROR=ON >/dev/null
cmake --build --preset fuzz -j "$jobs" --target fuzz_bplist fuzz_keybag fuzz_mbdb fuzz_attributedbody \
  fuzz_whatsapp_export fuzz_pdf_layout fuzz_chat_exports fuzz_http_request nuvrel-make-samples
corpus=build/fuzz/corpus
build/fuzz/tools/samples/nuvrel-make-samples --fuzz-seeds "$corpus" >/dev/null
for target in bplist:${fuzz_seconds} keybag:$((fuzz_seconds / 2)) mbdb:$((fuzz_seconds / 2)) \
              attributedbody:$((fuzz_seconds / 2)) whatsapp_export:$((fuzz_seconds / 2)) \
              pdf_layout:$((fuzz_seconds / 2)) chat_exports:$((fuzz_seconds / 2)) http_request:$((fuzz_seconds / 2)); do
  name=${target%%:*}
  seconds=${target#*:}
  mkdir -p "$corpus/$name"
  if ! (cd build/fuzz && LSAN_OPTIONS=suppressions=$PWD/../../tests/fuzz/lsan.supp tests/fuzz/fuzz_$name -max_total_time="$seconds" -max_len=8192 -timeout=10 \
        -print_final_stats=1 "corpus/$name" >"fuzz-$name.log" 2>&1); then
    tail -n 60 "build/fuzz/fuzz-$name.log"
    echo "fuzz_$name: FAILED (crash or sanitizer report above; the input is in build/fuzz)"
    status=1
  else
    echo "fuzz_$name: $(grep -E 'stat::number_of_executed_units' "build/fuzz/fuzz-$name.log" | awk '{print $2}') inputs in ${seconds}s, no finding"
  fi
done

step "Keychain and desktop portal: a private D-Bus session (gnome-keyring's Secret Service, a portal of the tests' own)"
# A keyring folder of its own, so that the developer's real keyring is neither used nor locked out.
keyrings=$(mktemp -d)
if ! XDG_DATA_HOME="$keyrings" dbus-run-session -- bash -c \
     'printf nuvrel | gnome-keyring-daemon --unlock --components=secrets >/dev/null &&
      QT_QPA_PLATFORM=offscreen NUVREL_KEYCHAIN_TEST=1 build/default/tests/platform/system/platform_tests --gtest_brief=1 &&
      NUVREL_KEYCHAIN_TEST=1 build/default/tests/cli/cli_tests --gtest_brief=1 --gtest_filter=*Remember*' 2>/dev/null; then
  echo "keychain test: FAILED"
  status=1
fi
rm -rf "$keyrings"

if [ "$(uname -s)" = Linux ]; then
  step "Owner check: polkitd on a private system bus, with the tests' own actions"
  # As root: polkitd reads actions only from /usr/share/polkit-1/actions, and the refusals are
  # checked as another account (polkit grants root everything).
  if [ "$(id -u)" -ne 0 ]; then
    echo "skipped: needs root"
  elif ! NUVREL_POLKIT_TEST=1 tools/with-private-polkit.sh build/default/tests/platform/system/platform_tests \
         --gtest_brief=1 --gtest_filter='PolkitOwnerCheck.*'; then
    echo "owner check test: FAILED"
    status=1
  fi

  step "The vault from the command line: the real keyring and polkitd, killed 200 times while adding"
  keyrings=$(mktemp -d)
  if [ "$(id -u)" -ne 0 ]; then
    echo "skipped: needs root"
  elif ! XDG_DATA_HOME="$keyrings" dbus-run-session -- bash -c \
         'printf nuvrel | gnome-keyring-daemon --unlock --components=secrets >/dev/null &&
          NUVREL_VAULT_CLI_TEST=1 tools/with-private-polkit.sh build/default/tests/cli/cli_tests --gtest_brief=1 \
            --gtest_filter="VaultCommand*"' 2>/dev/null; then
    echo "vault command test: FAILED"
    status=1
  fi
  rm -rf "$keyrings"
fi

step "Sanitizer tests"
ctest --preset asan || status=1

step "Tests"
ctest --preset default || status=1

# The offscreen platform lays windows out as no real one does (no window manager, other scroll bars):
# the window tests run once more on an X server of their own.
if command -v xvfb-run >/dev/null; then
  step "Window tests on a real X11 server (Xvfb)"
  xvfb-run -a -s "-screen 0 1920x1200x24" env QT_QPA_PLATFORM=xcb build/default/tests/app/app_tests --gtest_brief=1 ||
    status=1
  # The clipboard as other applications read it (xclip), which only a real X server shows.
  xvfb-run -a env QT_QPA_PLATFORM=xcb build/default/tests/platform/system/platform_tests --gtest_brief=1 \
    --gtest_filter='SystemClipboard.*' || status=1
fi
exit $status
