# Cross-compiles for the laser board's chip with Debian's gcc-avr and avr-libc.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR avr)
set(CMAKE_C_COMPILER avr-gcc)
set(CMAKE_CXX_COMPILER avr-g++)
set(CMAKE_C_FLAGS_INIT -mmcu=atmega328p)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
