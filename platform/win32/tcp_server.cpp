// The port by Windows' sockets, whose news come as messages.
#include <winsock2.h>

#include "platform/tcp_server.h"

#include "platform/win32/handles.h"

#include <algorithm>
#include <climits>
#include <utility>

namespace {

constexpr UINT messageSocket = WM_APP, messageClosed = WM_APP + 1;
constexpr UINT_PTR timerOfCalls = 1, timerOfNext = 2;

// The end of a client may be heard behind the coming of the next one, which waits so long for it.
constexpr UINT patienceMs = 300;

struct {
    TcpServerFace face{};
    HWND window = nullptr; // message-only
    SOCKET listener = INVALID_SOCKET;
    SOCKET client = INVALID_SOCKET;
    SOCKET next = INVALID_SOCKET; // has come, and is not heard yet
} server;

void closeSocket(SOCKET& socket) {
    if (socket == INVALID_SOCKET) return;
    closesocket(socket);
    socket = INVALID_SOCKET;
}

void serve(SOCKET came) {
    server.client = came;
    const BOOL atOnce = TRUE; // an answer is not held back until the next one
    setsockopt(came, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&atOnce),
               sizeof atOnce);
    if (WSAAsyncSelect(came, server.window, messageSocket, FD_READ | FD_WRITE | FD_CLOSE) != 0)
        return closeSocket(server.client); // nobody would hear it
    server.face.connected();
}

// The client is closed, or it was waited for long enough.
void decideOnNext() {
    KillTimer(server.window, timerOfNext);
    const SOCKET next = std::exchange(server.next, INVALID_SOCKET);
    if (next == INVALID_SOCKET) return;
    if (server.client == INVALID_SOCKET) return serve(next);
    closesocket(next);
    server.face.refused();
}

void takeClient() {
    const SOCKET came = accept(server.listener, nullptr, nullptr);
    if (came == INVALID_SOCKET) return;
    if (server.next != INVALID_SOCKET) {
        closesocket(came);
        return server.face.refused();
    }
    server.next = came;
    if (server.client == INVALID_SOCKET) return decideOnNext();
    SetTimer(server.window, timerOfNext, patienceMs, nullptr);
}

// The news of a close may be of a socket that had the same number before; and what was sent before
// it is to be read first.
void hearOfClose() {
    char next;
    const int count = recv(server.client, &next, 1, MSG_PEEK);
    if (count > 0) return server.face.readable();
    if (count == 0 || WSAGetLastError() != WSAEWOULDBLOCK) server.face.leaving();
}

LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == messageSocket) {
        const auto socket = static_cast<SOCKET>(wParam);
        const WORD event = WSAGETSELECTEVENT(lParam);
        if (socket == server.listener && event == FD_ACCEPT) takeClient();
        // News of a client that was closed meanwhile may still be waiting.
        if (socket != server.client) return 0;
        if (event == FD_READ) server.face.readable();
        if (event == FD_CLOSE) hearOfClose();
        if (event == FD_WRITE) server.face.writable();
        return 0;
    }
    if (message == messageClosed || (message == WM_TIMER && wParam == timerOfNext)) {
        decideOnNext();
        return 0;
    }
    if (message == WM_TIMER && wParam == timerOfCalls) {
        KillTimer(window, timerOfCalls);
        server.face.called();
        return 0;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

HWND makeWindow() {
    HINSTANCE program = GetModuleHandleW(nullptr);
    WNDCLASSEXW windowClass{};
    windowClass.cbSize = sizeof windowClass;
    windowClass.lpfnWndProc = procedure;
    windowClass.hInstance = program;
    windowClass.lpszClassName = L"LumascanDoor";
    RegisterClassExW(&windowClass); // there already from the second time on
    return CreateWindowExW(0, windowClass.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                           program, nullptr);
}

bool hasRoomSoon(SOCKET socket) {
    fd_set sockets;
    FD_ZERO(&sockets);
    FD_SET(socket, &sockets);
    timeval soon{0, 2000};
    return select(0, nullptr, &sockets, nullptr, &soon) > 0;
}

bool listenOnThisComputer(uint16_t port) {
    server.listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (server.listener == INVALID_SOCKET) return false;
    const BOOL alone = TRUE; // no other program takes the port beside this one
    setsockopt(server.listener, SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
               reinterpret_cast<const char*>(&alone), sizeof alone);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    constexpr int mostWaiting = 4;
    return bind(server.listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) ==
               0 &&
           listen(server.listener, mostWaiting) == 0 &&
           WSAAsyncSelect(server.listener, server.window, messageSocket, FD_ACCEPT) == 0;
}

} // namespace

bool listenAt(uint16_t port, const TcpServerFace& face, const char*& why) {
    stopListening();
    WSADATA data;
    why = "there is no network";
    if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return false;
    server.face = face;
    server.window = makeWindow();
    if (server.window && listenOnThisComputer(port)) return true;
    if (WSAGetLastError() == WSAEADDRINUSE || WSAGetLastError() == WSAEACCES)
        why = "another program has it";
    closeSocket(server.listener);
    if (server.window) DestroyWindow(server.window);
    server.window = nullptr;
    WSACleanup();
    return false;
}

void stopListening() {
    if (!server.window) return;
    closeSocket(server.client);
    closeSocket(server.next);
    closeSocket(server.listener);
    DestroyWindow(server.window);
    server.window = nullptr;
    WSACleanup();
}

int readFromClient(char* bytes, size_t capacity) {
    if (server.client == INVALID_SOCKET) return -1;
    const int count =
        recv(server.client, bytes, static_cast<int>(std::min<size_t>(capacity, INT_MAX)), 0);
    if (count > 0) return count;
    return count == SOCKET_ERROR && WSAGetLastError() == WSAEWOULDBLOCK ? 0 : -1;
}

// A client that reads makes room in less time than a message of it takes to come.
int sendToClient(const char* bytes, size_t count) {
    if (server.client == INVALID_SOCKET) return -1;
    const int size = static_cast<int>(std::min<size_t>(count, INT_MAX));
    int sent = send(server.client, bytes, size, 0);
    if (sent < 0 && WSAGetLastError() == WSAEWOULDBLOCK && hasRoomSoon(server.client))
        sent = send(server.client, bytes, size, 0);
    if (sent >= 0) return sent;
    if (WSAGetLastError() == WSAEWOULDBLOCK) return 0;
    closeSocket(server.client);
    return -1;
}

void closeClient() {
    closeSocket(server.client);
    if (server.next != INVALID_SOCKET) PostMessageW(server.window, messageClosed, 0, 0);
}

void callBehindInput(uint32_t ms) {
    if (server.window) SetTimer(server.window, timerOfCalls, ms, nullptr);
}

bool isOfTcpServer(const Message& message) {
    return server.window && native(message.window) == server.window;
}
