// Our declarations of the parameter analyzer's client library.
#pragma once

constexpr int kxciConnected = 1; // status after a successful open

// Without the library a connection reports another status and a command leaves its reply alone.
struct Kxci {
    void (*OpenKXCIConnection_C)(const char* address, int port,
                                 int* status) = [](const char*, int, int* status) { *status = 0; };
    void (*SendKXCICommand_C)(const char* command, char* reply, int* status) = [](const char*,
                                                                                  char*, int*) {};
    void (*CloseKXCIConnection_C)() = [] {};
};

// Loads KXCIclient64.dll.
Kxci loadKxci();
