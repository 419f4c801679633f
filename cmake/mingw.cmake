# What both cross builds share. MENDWORK_ARCH is set by the file that includes this one.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_C_COMPILER ${MENDWORK_ARCH}-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER ${MENDWORK_ARCH}-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER ${MENDWORK_ARCH}-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${MENDWORK_ARCH}-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
# Nothing but Windows itself is needed at run time.
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -static)
# Runs the tests in a private Wine prefix; see the script.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/wine-run;${CMAKE_BINARY_DIR}")
