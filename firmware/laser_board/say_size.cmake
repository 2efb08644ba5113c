# Says how large a program for the board is, and fails where it has outgrown its limits. What is
# left of the 2048 bytes of memory is the stack's.
#
#   cmake -D program=laser_board -P say_size.cmake
execute_process(COMMAND avr-size ${program}.elf OUTPUT_VARIABLE sizes COMMAND_ERROR_IS_FATAL ANY)
string(REGEX MATCH "\n *([0-9]+)[\t ]+([0-9]+)[\t ]+([0-9]+)" found "${sizes}")
math(EXPR flash "${CMAKE_MATCH_1} + ${CMAKE_MATCH_2}")
math(EXPR memory "${CMAKE_MATCH_2} + ${CMAKE_MATCH_3}")
message("${program}.hex: ${flash} bytes of flash, ${memory} bytes of RAM")
if(NOT found OR flash GREATER_EQUAL 8192 OR memory GREATER_EQUAL 512)
    message(FATAL_ERROR "allowed are less than 8192 and 512")
endif()
