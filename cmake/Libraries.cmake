# The packaged libraries, found once; each is linked by the one room that uses it.
find_package(PkgConfig REQUIRED)
find_package(SQLite3 3.39 REQUIRED) # IS DISTINCT FROM
pkg_check_modules(EXIF REQUIRED IMPORTED_TARGET GLOBAL libexif)
pkg_check_modules(FLAC REQUIRED IMPORTED_TARGET GLOBAL flac)
pkg_check_modules(LIBAV REQUIRED IMPORTED_TARGET GLOBAL libavformat libavcodec libavutil)
pkg_check_modules(LIBPQ IMPORTED_TARGET GLOBAL libpq>=15) # pipelines; may be missing
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET GLOBAL libseccomp)
pkg_check_modules(MICROHTTPD REQUIRED IMPORTED_TARGET GLOBAL libmicrohttpd>=0.9.73)
pkg_check_modules(UTF8PROC REQUIRED IMPORTED_TARGET GLOBAL libutf8proc)
pkg_check_modules(SWSCALE REQUIRED IMPORTED_TARGET GLOBAL libswscale libavutil)
pkg_check_modules(TURBOJPEG REQUIRED IMPORTED_TARGET GLOBAL libturbojpeg)
find_package(Threads REQUIRED)
