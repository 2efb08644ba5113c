#include "tests/firmware/simulated_board.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

static std::string hex(const std::string& bytes) {
    std::string text;
    char digits[3];
    for (const char byte : bytes) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned>(byte) & 0xFF);
        text += digits;
    }
    return text;
}

SimulatedBoard::SimulatedBoard(const char* program, const char* option) {
    const std::string firmware = std::string(BOARD_PROGRAMS) + "/" + program;
    int toBoard[2], fromBoard[2];
    if (pipe(toBoard) != 0 || pipe(fromBoard) != 0) std::abort();
    process = fork();
    if (process == 0) {
        dup2(toBoard[0], 0);
        dup2(fromBoard[1], 1);
        for (const int end : {toBoard[0], toBoard[1], fromBoard[0], fromBoard[1]}) close(end);
        execl(BOARD_SIMULATOR, BOARD_SIMULATOR, firmware.c_str(), option, nullptr);
        std::perror(BOARD_SIMULATOR);
        _exit(1);
    }
    close(toBoard[0]);
    close(fromBoard[1]);
    orders = fdopen(toBoard[1], "w");
    events = fdopen(fromBoard[0], "r");
}

SimulatedBoard::~SimulatedBoard() {
    std::fclose(orders); // it ends with its orders
    std::fclose(events);
    waitpid(process, nullptr, 0);
}

void SimulatedBoard::order(const std::string& text) {
    std::fprintf(orders, "%s\n", text.c_str());
}

void SimulatedBoard::take(const std::string& what, uint64_t when, int number) {
    cycle = std::max(cycle, when);
    if (what == "byte") replies.push_back({when, static_cast<char>(number)});
    if (what == "convert") {
        std::fprintf(orders, "%d\n", number == 0 ? counts() : 0);
        std::fflush(orders);
    }
    if (what != "laser" && what != "lamp") return;
    if (what == "lamp") lamp = number != 0;
    if (what == "laser") laser = number;
    if (what == "laser" && laser == 0) dark = when;
    lightChanged();
}

void SimulatedBoard::runUntil(uint64_t wanted) {
    if (wanted <= cycle) return;
    order("run " + std::to_string(wanted));
    std::fflush(orders);
    uint64_t reached = 0;
    char what[16];
    while (std::fscanf(events, "%15s %lu", what, &reached) == 2 && std::string(what) != "at") {
        int number = 0;
        if (std::fscanf(events, "%d", &number) != 1) break;
        // A byte is told when it begins.
        take(what, std::string(what) == "byte" ? reached : std::min(reached, wanted), number);
    }
    if (std::string(what) != "at") std::fprintf(stderr, "the simulator has ended\n"), std::abort();
    cycle = std::max(wanted, reached);
}

uint64_t SimulatedBoard::send(const std::string& bytes) {
    order("send " + hex(bytes));
    lineFree = std::max(lineFree, cycle) + bytes.size() * lineByteCycles;
    return lineFree;
}

std::string SimulatedBoard::takeReply() {
    std::string reply;
    while (!replies.empty() && replies.front().arrives <= cycle) {
        reply += replies.front().byte;
        replies.pop_front();
    }
    return reply;
}

std::string SimulatedBoard::ask(const std::string& command, uint64_t ms) {
    takeReply();
    runUntil(send(command + '\0'));
    runMs(ms);
    return takeReply();
}

int SimulatedBoard::peek(int address) {
    order("peek " + std::to_string(address));
    std::fflush(orders);
    int value = -1;
    if (std::fscanf(events, " value %d", &value) != 1) std::abort();
    return value;
}
