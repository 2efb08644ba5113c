// The laser's level as the voltage of an MCP4725 on the I2C bus (analog 4 and 5); pin 5 is the
// gate, high while the laser may shine. The converter keeps its voltage when the board is reset, so
// that dark is only what the gate makes dark.
#include "laser_output.h"

#include "chip.h"

#include <avr/interrupt.h>
#include <avr/io.h>
#include <util/delay.h>

const char laserOutputName[] = "MCP4725";

enum {
    firstAddress = 0x60, // with the order and the wiring of A0 it is one of 0x60..0x67
    lastAddress = 0x67,
    storeCommand = 0x60, // writes the value that it has at power-on, too
};

static uint8_t address; // 0: nobody has answered

// --- I2C, as the chip's manual has it ------------------------------------------------------------

static volatile bool busIsDone;

ISR(TWI_vect) {
    TWCR = _BV(TWEN); // its flag stays: that holds the bus
    busIsDone = true;
}

// False when the bus hangs.
static bool busDoes(uint8_t control) {
    busIsDone = false;
    TWCR = (uint8_t)(_BV(TWINT) | _BV(TWEN) | _BV(TWIE) | control);
    for (uint8_t waitedUs = 0; waitedUs < 250; ++waitedUs) {
        if (busIsDone) return true;
        _delay_us(1);
    }
    return false;
}

static void stopBus(void) {
    TWCR = _BV(TWINT) | _BV(TWEN) | _BV(TWSTO);
    for (uint16_t tries = 0; tries < 1000 && (TWCR & _BV(TWSTO)); ++tries) continue;
}

// Whether the byte, an address or data, was acknowledged.
static bool isTaken(uint8_t byte) {
    TWDR = byte;
    const bool done = busDoes(0);
    const uint8_t status = TWSR & 0xF8; // of a written address, of data, of a read address
    return done && (status == 0x18 || status == 0x28 || status == 0x40);
}

static bool isWritten(const uint8_t* bytes, uint8_t count) {
    bool done = busDoes(_BV(TWSTA)) && isTaken((uint8_t)(address << 1));
    while (done && count-- > 0) done = isTaken(*bytes++);
    stopBus();
    return done;
}

static bool isRead(uint8_t* bytes, uint8_t count) {
    bool done = busDoes(_BV(TWSTA)) && isTaken((uint8_t)(address << 1 | 1));
    while (done && count-- > 0) {
        done = busDoes(count > 0 ? _BV(TWEA) : 0);
        *bytes++ = TWDR;
    }
    stopBus();
    return done;
}

// --- The converter -------------------------------------------------------------------------------

static bool findConverter(void) {
    for (address = firstAddress; address <= lastAddress; ++address)
        if (isWritten(0, 0)) return true;
    address = 0;
    return false;
}

// From the factory it comes up with half its range. Stored once, it comes up dark.
static void storeDarkStart(void) {
    uint8_t state[5]; // status, value (2 bytes), stored value (2 bytes)
    if (!isRead(state, sizeof state) || ((state[3] & 0x6F) == 0 && state[4] == 0)) return;
    const uint8_t dark[] = {storeCommand, 0, 0};
    if (isWritten(dark, sizeof dark)) _delay_ms(50); // it takes nothing while it stores
}

bool prepareLaser(uint8_t level) {
    if (address == 0 && !findConverter()) return false;
    const uint16_t value = (uint16_t)(((uint32_t)level * 4095 + 127) / 255);
    const uint8_t bytes[] = {(uint8_t)(value >> 8), (uint8_t)value};
    if (isWritten(bytes, sizeof bytes)) return true;
    address = 0;
    return false;
}

void startLaserOutput(void) {
    TWBR = 72;                // 100 kHz
    PORTC |= _BV(4) | _BV(5); // pull-ups, in case that the converter's board has none
    if (prepareLaser(0)) storeDarkStart();
}

void lightLaser(uint8_t level) {
    (void)level;
    PORTD |= _BV(laserPortBit);
}

void cutLaser(void) {
    PORTD &= (uint8_t)~_BV(laserPortBit);
}
