// What Windows is told about this process before it does anything.
#pragma once

// No window of the program is replaced by the system's picture of it while it waits for a dead
// instrument: the X of that picture would end the process with the laser on. No vendor's library is
// looked for in the folder from which the program was started. Waits stay as short as asked for
// while no window is to be seen. Numbers are this thread's own affair. To be called once, at start.
void settleProcess();
