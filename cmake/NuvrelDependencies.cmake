# Every dependency comes from the system's packages; a missing one stops the configure step with the
# package to install, since tools/install-deps.sh is the one place that knows how to install them.
include_guard(GLOBAL)
find_package(PkgConfig QUIET)

function(nuvrel_missing what debian brew)
  message(FATAL_ERROR "${what} was not found. Install it with 'tools/install-deps.sh', "
                      "or by hand: apt-get install ${debian} (Debian) / brew install ${brew} (macOS).")
endfunction()

find_package(Qt6 6.4 QUIET COMPONENTS Core Gui Widgets Network Concurrent Svg)
if(NOT Qt6_FOUND)
  nuvrel_missing("Qt 6 (Core, Gui, Widgets, Network, Concurrent, Svg)" "qt6-base-dev qt6-svg-dev" qt@6)
endif()
# QtPdf draws the pages of a PDF that the lightener turns into pictures.
find_package(Qt6 6.4 QUIET COMPONENTS Pdf)
if(NOT Qt6Pdf_FOUND)
  nuvrel_missing("Qt 6 PDF" qt6-pdf-dev qt@6)
endif()
if(NOT APPLE)
  # The file manager is asked to show extracted files over the session bus.
  find_package(Qt6 6.4 QUIET COMPONENTS DBus)
  if(NOT Qt6DBus_FOUND)
    nuvrel_missing("Qt 6 D-Bus" qt6-base-dev qt@6)
  endif()
endif()
if(NUVREL_BUILD_TESTS)
  find_package(Qt6 6.4 QUIET COMPONENTS Test)
  if(NOT Qt6Test_FOUND)
    nuvrel_missing("Qt 6 Test" qt6-base-dev qt@6)
  endif()
endif()
qt_standard_project_setup()

find_package(Qt6Keychain QUIET)
if(NOT Qt6Keychain_FOUND)
  nuvrel_missing("QtKeychain for Qt 6" qtkeychain-qt6-dev qtkeychain)
endif()

find_package(OpenSSL 3 QUIET COMPONENTS Crypto)
if(NOT OpenSSL_FOUND)
  nuvrel_missing("OpenSSL 3 (libcrypto)" libssl-dev openssl@3)
endif()

# ICU: the plural rules of every language (CLDR), which Qt does not expose.
find_package(ICU 60 QUIET COMPONENTS uc i18n)
if(NOT ICU_FOUND)
  nuvrel_missing("ICU" libicu-dev icu4c)
endif()

find_package(SQLite3 QUIET)
if(NOT SQLite3_FOUND)
  nuvrel_missing("SQLite 3" libsqlite3-dev sqlite)
endif()

# The libraries found through pkg-config: PkgConfig::<prefix>, or the configure step stops with the
# packages to install. A macro, so that <prefix>_VERSION and the rest stay visible here.
macro(nuvrel_require_pkg prefix module what debian brew)
  if(PkgConfig_FOUND)
    pkg_check_modules(${prefix} QUIET IMPORTED_TARGET ${module})
  endif()
  if(NOT ${prefix}_FOUND)
    nuvrel_missing("${what}" "${debian}" "${brew}")
  endif()
endmacro()

# libplist ships no CMake package, only a pkg-config file.
nuvrel_require_pkg(LIBPLIST libplist-2.0 "libplist" libplist-dev libplist)
nuvrel_require_pkg(LIBHEIF libheif "libheif" libheif-dev libheif)
# exiv2: the Exif a lightened photo carries over from its source.
nuvrel_require_pkg(EXIV2 exiv2 "exiv2" libexiv2-dev exiv2)
# Poppler's Qt binding: the rotation of a PDF's pages, which QtPdf 6.4 does not tell.
nuvrel_require_pkg(POPPLER_QT6 poppler-qt6 "Poppler for Qt 6" libpoppler-qt6-dev poppler)
# RapidJSON: its streaming reader, for chat exports of gigabytes (header-only).
nuvrel_require_pkg(RAPIDJSON RapidJSON "RapidJSON" rapidjson-dev rapidjson)
# libzip: WhatsApp's exports with media come as zip archives.
nuvrel_require_pkg(LIBZIP libzip "libzip" libzip-dev libzip)
# libqrencode: the QR code a phone's camera reads the transfer address from.
nuvrel_require_pkg(LIBQRENCODE libqrencode "libqrencode" libqrencode-dev qrencode)
# libimobiledevice: the phone on a cable, through usbmuxd (its camera roll, its lock state).
nuvrel_require_pkg(LIBIMOBILEDEVICE libimobiledevice-1.0 "libimobiledevice" libimobiledevice-dev libimobiledevice)

string(REPLACE "." ";" _plist_version "${LIBPLIST_VERSION}")
list(GET _plist_version 0 NUVREL_LIBPLIST_MAJOR)
list(GET _plist_version 1 NUVREL_LIBPLIST_MINOR)

if(NUVREL_BUILD_TESTS)
  find_package(GTest CONFIG QUIET)
  if(NOT GTest_FOUND)
    nuvrel_missing("GoogleTest" "libgtest-dev libgmock-dev" googletest)
  endif()
endif()

if(NUVREL_BUILD_BENCH)
  find_package(benchmark CONFIG QUIET)
  if(NOT benchmark_FOUND)
    nuvrel_missing("Google Benchmark" libbenchmark-dev google-benchmark)
  endif()
endif()
