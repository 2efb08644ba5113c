// The laser's level as pulses of 62.5 kHz on pin 5 (OC0B): the filter behind it makes a voltage.
#include "laser_output.h"

#include "chip.h"

#include <avr/io.h>

const char laserOutputName[] = "PWM";

// Fast PWM without a prescaler: 16 MHz / 256. The pin stays the port's until lightLaser.
void startLaserOutput(void) {
    OCR0B = 0;
    TCCR0A = _BV(WGM01) | _BV(WGM00);
    TCCR0B = _BV(CS00);
}

bool prepareLaser(uint8_t level) {
    (void)level;
    return true;
}

// The pin is high for OCR0B + 1 of 256 clocks: the nearest to level / 255. The full level is the
// port's own, without pulses.
void lightLaser(uint8_t level) {
    if (level == 255) {
        PORTD |= _BV(laserPortBit);
        TCCR0A = _BV(WGM01) | _BV(WGM00);
        return;
    }
    OCR0B = (uint8_t)(level < 128 ? level - 1 : level);
    TCCR0A = _BV(COM0B1) | _BV(WGM01) | _BV(WGM00);
    PORTD &= (uint8_t)~_BV(laserPortBit);
}

// OCR0B takes effect with the next period: at 0 it is ready to begin with the shortest pulse.
void cutLaser(void) {
    TCCR0A = _BV(WGM01) | _BV(WGM00);
    PORTD &= (uint8_t)~_BV(laserPortBit);
    OCR0B = 0;
}
