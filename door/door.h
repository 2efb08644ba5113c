// The door for scripts: a TCP port at 127.0.0.1 where one client speaks SCPI. What it sends is
// carried out on the windows' thread, wherever messages are dispatched: while something is under
// way, it may ask and stop and nothing else. What takes long is begun by a message of its own, as
// if the operator had pressed the button, and never from inside a wait.
#pragma once

#include "door/scpi_session.h"
#include "session/outcome.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

struct DoorSettings {
    bool isOpen = false;
    bool maySwitch = false; // laser and bias
    int32_t port = 5025;    // registered for "scpi-raw"

    bool operator==(const DoorSettings&) const = default;
};
extern DoorSettings doorSettings;

// From Options.ini; a value that is none is said, and the default holds. Into it, but for the port,
// which is written by hand; false when that failed.
void readDoorSettings();
bool writeDoorSettings();

// Opens or closes the port, as the settings say. A port that cannot be opened is said.
void followDoorSettings();

// Nobody hears a client any more, at the program's end.
void closeDoor();

// Laser and bias of a client that is gone go off once nothing is under way.
void onDoorTimer();

// --- For the verbs -------------------------------------------------------------------------------

// What the client wants to begin: `run` is called by a message of its own and returns how it
// ended, nothing where it could not begin. `name` as in "a mapping".
void beginForClient(const char* name, std::function<std::optional<Outcome>()> run);

// Asks what the client has begun to stop; the refusal in words where something else is under way.
std::string stopForClient();

// Pauses what the client has begun behind its present point, and lets it go on; not what the
// operator has paused. The refusal in words otherwise.
std::string pauseForClient(bool pause);

// What the client has begun is under way, or will be.
bool clientIsAtWork();
bool clientBegins(const std::string& name); // it is that, and will be

// The client has switched them, outside of a process.
void noteLaserOfClient(bool on);
void noteBiasOfClient(bool on);

// Around each of its changes of the bias of scans or its limit: those of before come back when it
// is gone.
void noteSourceBeforeClient();
void noteSourceOfClient();

// *RST: what the client has switched on is off again, and the source as it was before it.
void forgetClientsDoings();

// Whether the program is in a process or a move: a reading would be in its way.
bool programIsBusy();

// The conditions of the two big registers as they are now.
void followConditions(ScpiStatus& status);
