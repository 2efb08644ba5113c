// The laser's output. Two sources provide it, and the build links one of them: laser_output_pwm.c
// and laser_output_mcp4725.c.
#pragma once

#include <stdbool.h>
#include <stdint.h>

// Pin 5: low is dark. It is the modulated output of the one and the gate of the other.
enum { laserPortBit = 5 };

void startLaserOutput(void);

// The slow part of a change, before lightLaser; false when the output does not do it.
bool prepareLaser(uint8_t level);

// The quick part of a change to a level above 0; interrupts are held.
void lightLaser(uint8_t level);

// Dark at once; also called by an interrupt.
void cutLaser(void);
