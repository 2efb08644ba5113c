// The port of the native tests.
#include "tests/doubles/scripted_client.h"

#include "platform/tcp_server.h"
#include "tests/doubles/script.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace {

// A socket's number is its message's wParam, and may be any: that of the button "Start", too.
constexpr uintptr_t socketNumber = 2000;

struct {
    bool listens = false;
    int port = 0;
    TcpServerFace face{};
    bool connected = false;
    bool left = false; // and the program has not noticed yet
    std::string toProgram, toClient;
    size_t room = std::numeric_limits<size_t>::max();
    int refused = 0;
    int calls = 0; // of callBehindInput: the last one counts
} server;

WindowHandle serverWindow() {
    static char window;
    return reinterpret_cast<WindowHandle>(&window);
}

void tell(void (*TcpServerFace::*what)()) {
    postCallTo(
        serverWindow(),
        [what] {
            if (server.listens) (server.face.*what)();
        },
        socketNumber);
}

} // namespace

bool portIsOpen() {
    return server.listens;
}

int portNumber() {
    return server.port;
}

void clientConnects() {
    if (!server.listens) return;
    postCallTo(
        serverWindow(),
        [] {
            if (!server.listens) return;
            if (server.connected) {
                ++server.refused;
                return server.face.refused();
            }
            server.connected = true;
            server.left = false;
            server.toProgram.clear();
            server.toClient.clear();
            server.face.connected();
        },
        socketNumber);
}

void clientSends(const std::string& bytes) {
    postCallTo(
        serverWindow(),
        [bytes] {
            if (!server.connected) return;
            server.toProgram += bytes;
            server.face.readable();
        },
        socketNumber);
}

void clientLeaves() {
    postCallTo(
        serverWindow(),
        [] {
            if (!server.connected) return;
            server.left = true;
            server.face.leaving();
        },
        socketNumber);
}

std::string clientHears() {
    const bool wasFull = server.toClient.size() >= server.room;
    if (wasFull) tell(&TcpServerFace::writable);
    return std::exchange(server.toClient, {});
}

bool clientIsConnected() {
    return server.connected;
}

int clientsRefused() {
    return server.refused;
}

void boundClient(size_t bytes) {
    server.room = bytes;
}

void resetClient() {
    server = {};
}

bool listenAt(uint16_t port, const TcpServerFace& face, const char*&) {
    server.listens = true;
    server.port = port;
    server.face = face;
    return true;
}

void stopListening() {
    server.listens = server.connected = false;
}

int readFromClient(char* bytes, size_t capacity) {
    if (!server.connected) return -1;
    const size_t count = std::min(capacity, server.toProgram.size());
    if (count == 0 && server.left) return -1;
    std::memcpy(bytes, server.toProgram.data(), count);
    server.toProgram.erase(0, count);
    return static_cast<int>(count);
}

int sendToClient(const char* bytes, size_t count) {
    if (!server.connected) return -1;
    const size_t taken =
        std::min(count, server.room - std::min(server.room, server.toClient.size()));
    server.toClient.append(bytes, taken);
    return static_cast<int>(taken);
}

void closeClient() {
    server.connected = false;
}

void callBehindInput(uint32_t ms) {
    in(ms, [call = ++server.calls] {
        if (call == server.calls) tell(&TcpServerFace::called);
    });
}

bool isOfTcpServer(const Message& message) {
    return message.window == serverWindow();
}
