# Builds the laser board's program beside another build: target "firmware", its files in
# ${firmware_folder}.
include(ExternalProject)
set(firmware_folder ${CMAKE_BINARY_DIR}/firmware)
ExternalProject_Add(firmware
    SOURCE_DIR ${CMAKE_SOURCE_DIR}
    BINARY_DIR ${firmware_folder}
    CMAKE_ARGS -D CMAKE_TOOLCHAIN_FILE=${CMAKE_SOURCE_DIR}/cmake/avr.cmake
    BUILD_ALWAYS ON
    INSTALL_COMMAND ""
    EXCLUDE_FROM_ALL ON)
