// The port for scripts and whoever connects to it, in memory. What the client does comes to the
// program as messages, at the next wait.
#pragma once

#include <cstddef>
#include <string>

bool portIsOpen();
int portNumber();

void clientConnects(); // a second one, too, while one is there
void clientSends(const std::string& bytes);
void clientLeaves();

// What it was sent since the last call.
std::string clientHears();

bool clientIsConnected(); // as the program has it
int clientsRefused();

// Of a client that does not read: what the program can send until it does. Without a bound at
// first.
void boundClient(size_t bytes);

void resetClient();
