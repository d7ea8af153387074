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

# libplist ships no CMake package, only a pkg-config file.
if(PkgConfig_FOUND)
  pkg_check_modules(LIBPLIST QUIET IMPORTED_TARGET libplist-2.0)
endif()
if(NOT LIBPLIST_FOUND)
  nuvrel_missing("libplist" libplist-dev libplist)
endif()
if(PkgConfig_FOUND)
  pkg_check_modules(LIBHEIF QUIET IMPORTED_TARGET libheif)
endif()
if(NOT LIBHEIF_FOUND)
  nuvrel_missing("libheif" libheif-dev libheif)
endif()

# exiv2: the Exif a lightened photo carries over from its source.
if(PkgConfig_FOUND)
  pkg_check_modules(EXIV2 QUIET IMPORTED_TARGET exiv2)
endif()
if(NOT EXIV2_FOUND)
  nuvrel_missing("exiv2" libexiv2-dev exiv2)
endif()
# Poppler's Qt binding: the rotation of a PDF's pages, which QtPdf 6.4 does not tell.
if(PkgConfig_FOUND)
  pkg_check_modules(POPPLER_QT6 QUIET IMPORTED_TARGET poppler-qt6)
endif()
if(NOT POPPLER_QT6_FOUND)
  nuvrel_missing("Poppler for Qt 6" libpoppler-qt6-dev poppler)
endif()

# RapidJSON: its streaming reader, for chat exports of gigabytes (header-only).
if(PkgConfig_FOUND)
  pkg_check_modules(RAPIDJSON QUIET IMPORTED_TARGET RapidJSON)
endif()
if(NOT RAPIDJSON_FOUND)
  nuvrel_missing("RapidJSON" rapidjson-dev rapidjson)
endif()
# libzip: WhatsApp's exports with media come as zip archives.
if(PkgConfig_FOUND)
  pkg_check_modules(LIBZIP QUIET IMPORTED_TARGET libzip)
endif()
if(NOT LIBZIP_FOUND)
  nuvrel_missing("libzip" libzip-dev libzip)
endif()

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
