// The laser board's own program in the simulator (board_simulator.cpp), under the tests' orders.
#pragma once

#include <cstdint>
#include <cstdio>
#include <deque>
#include <functional>
#include <string>

constexpr uint64_t cyclesPerMs = 16'000;
constexpr uint64_t lineByteCycles = 16'667; // 10 bits at 9600 baud

class SimulatedBoard {
public:
    explicit SimulatedBoard(const char* program = "laser_board.hex", const char* option = nullptr);
    ~SimulatedBoard();
    SimulatedBoard(const SimulatedBoard&) = delete;

    void order(const std::string& text); // as the simulator understands them
    void runUntil(uint64_t wanted);      // cycles since the power came on
    void runMs(uint64_t ms) { runUntil(cycle + ms * cyclesPerMs); }

    // Into the line, behind what is still under way; returns when its last byte has arrived.
    uint64_t send(const std::string& bytes);
    // A command with its zero byte, and what has come back some time later.
    std::string ask(const std::string& command, uint64_t ms = 60);
    std::string takeReply(); // what has arrived by now
    int peek(int address);   // a byte of the chip's memory

    uint64_t cycle = 0; // now; that of the event while one of the functions below is called
    int laser = 0;      // of 4096
    uint64_t dark = 0;  // when the laser last went dark
    bool lamp = false;
    std::function<int()> counts = [] { return 0; }; // of analog 0; the others have 0
    std::function<void()> lightChanged = [] {};

    struct Byte {
        uint64_t arrives; // with its last bit
        char byte;
    };
    std::deque<Byte> replies;

private:
    int process = 0;
    std::FILE* orders = nullptr;
    std::FILE* events = nullptr;
    uint64_t lineFree = 0;

    void take(const std::string& what, uint64_t when, int number);
};
