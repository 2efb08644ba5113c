// What the computer must not go to sleep over while nobody touches it.
#pragma once

enum class AwakeFor : unsigned { Process = 1, Laser = 2, Bias = 4 };

// From now on, or no longer. Closing the lid and the operator's own wish are stronger.
void stayAwakeFor(AwakeFor reason, bool wanted);
