# 64-bit Arm with Debian's cross compiler, against the tree that tools/arm64-python unpacked.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(KESTREL_ARM64_PYTHON "" CACHE PATH "Root of the unpacked arm64 Python")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KESTREL_ARM64_PYTHON)
# Its programs run under emulation, with the libraries of that tree.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L ${KESTREL_ARM64_PYTHON})
list(APPEND CMAKE_PREFIX_PATH ${KESTREL_ARM64_PYTHON}/usr/lib/aarch64-linux-gnu/cmake)

# The interpreter that runs our generators is the machine's own; headers and the module's suffix are the target's.
set(KESTREL_MODULE_SUFFIX .cpython-311-aarch64-linux-gnu.so)
set(Python_INCLUDE_DIR ${KESTREL_ARM64_PYTHON}/usr/include/python3.11)
# pyconfig.h includes the one of its architecture by a path below /usr/include.
add_compile_options(-isystem ${KESTREL_ARM64_PYTHON}/usr/include)
set(KESTREL_SQLITE_INCLUDE ${KESTREL_ARM64_PYTHON}/usr/include)
set(KESTREL_SQLITE_ARCHIVE ${KESTREL_ARM64_PYTHON}/usr/lib/aarch64-linux-gnu/libsqlite3.a)
