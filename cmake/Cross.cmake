# The cross compiler of an emulated machine, which script/machine names in the environment.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX MATCH "^[^-]+" CMAKE_SYSTEM_PROCESSOR "$ENV{KOLI_TRIPLE}")
set(CMAKE_C_COMPILER "$ENV{KOLI_TRIPLE}-gcc")
set(CMAKE_CXX_COMPILER "$ENV{KOLI_TRIPLE}-g++")
set(ENV{PKG_CONFIG_LIBDIR} "/usr/lib/$ENV{KOLI_TRIPLE}/pkgconfig:/usr/share/pkgconfig")
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "$ENV{KOLI_MACHINE}")
