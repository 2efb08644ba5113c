// A TCP port of this computer, at 127.0.0.1 alone, for one client at a time. Everything happens on
// the windows' thread, by messages of a window of its own that nobody sees.
#pragma once

#include "platform/messages.h"

#include <cstddef>
#include <cstdint>

// What is called when such a message is dispatched; also inside a wait or while a box is open.
struct TcpServerFace {
    void (*connected)(); // a client has come
    void (*refused)();   // a second one was closed without a word; it had a moment to be the next
    void (*readable)();  // it has sent something
    void (*leaving)();   // it sends nothing more than what is there to be read
    void (*writable)();  // more can be sent to it
    void (*called)();    // for each callBehindInput, behind what mouse and keyboard have sent
};

// Begins to listen. False, and `why` says so, when the port is taken or there is no network.
bool listenAt(uint16_t port, const TcpServerFace& face, const char*& why);
void stopListening(); // closes the client, too; nothing happens without a port

// What it has sent, at most `capacity` bytes. 0: nothing by now; -1: it sends nothing more, and is
// to be closed once it has its answers.
int readFromClient(char* bytes, size_t capacity);

// How much of it was taken; the rest is to be sent when `writable` is called. -1: it is gone.
int sendToClient(const char* bytes, size_t count);
void closeClient(); // nothing happens without one

// `called` comes after at least so many milliseconds, later than all that waits by then.
void callBehindInput(uint32_t ms);

// Whether a message is for that window: whatever numbers it carries.
bool isOfTcpServer(const Message& message);
