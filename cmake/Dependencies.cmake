# Every dependency comes from Debian 12 packages; scripts/install-deps installs them.
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets DBus Network)
find_package(OpenSSL 3 REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(PLIST REQUIRED IMPORTED_TARGET libplist-2.0)
pkg_check_modules(LIBSECRET REQUIRED IMPORTED_TARGET libsecret-1)
pkg_check_modules(HARFBUZZ REQUIRED IMPORTED_TARGET harfbuzz)
# The host programs read QR codes with ZBar and write them with libqrencode.
pkg_check_modules(ZBAR REQUIRED IMPORTED_TARGET zbar)
pkg_check_modules(QRENCODE REQUIRED IMPORTED_TARGET libqrencode)

# What the parts of marlockCompanionCommon use privately; the shared library links them all.
set(MARLOCK_PRIVATE_DEPENDENCIES Qt6::Network OpenSSL::Crypto PkgConfig::PLIST PkgConfig::LIBSECRET PkgConfig::HARFBUZZ)
