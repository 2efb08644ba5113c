// The chip: an ATmega328P at 16 MHz. Everything waits for interrupts; the main loop carries on what
// they have brought and sleeps in between.
#include "board.h"
#include "chip.h"
#include "laser_output.h"

#include <avr/interrupt.h>
#include <avr/io.h>
#include <avr/sleep.h>
#include <avr/wdt.h>
#include <util/atomic.h>

enum {
    lampPortBit = 6,      // pin 6
    interlockPortBit = 7, // pin 7: to ground through the interlock; open, its pull-up makes it high
    lineDivider = 103,    // 16 MHz / 16 / 104 = 9615 baud
    ticksPerMillisecond = 250,
};

// --- The start -----------------------------------------------------------------------------------

// The first instructions, before there is a stack: both outputs low.
void holdOutputsLow(void) __attribute__((naked, used, section(".init0")));
void holdOutputsLow(void) {
    PORTD &= (uint8_t)~_BV(laserPortBit);
    PORTD &= (uint8_t)~_BV(lampPortBit);
    DDRD |= _BV(laserPortBit);
    DDRD |= _BV(lampPortBit);
}

static uint8_t resetFlags __attribute__((section(".noinit")));

// A watchdog that has reset the chip runs on with 15 ms, which the start would not survive.
void stopWatchdog(void) __attribute__((naked, used, section(".init3")));
void stopWatchdog(void) {
    resetFlags = MCUSR;
    MCUSR = 0;
    wdt_disable();
}

// --- The line ------------------------------------------------------------------------------------

// One end of each ring belongs to an interrupt. Sizes are powers of two.
static struct {
    struct {
        uint8_t byte;
        bool damaged;
    } entries[32];
    volatile uint8_t in, out;
    bool lost; // bytes, since the last entry
} received;

static struct {
    char bytes[64];
    volatile uint8_t in, out;
} toSend;

enum {
    receivedMask = sizeof received.entries / sizeof *received.entries - 1,
    toSendMask = sizeof toSend.bytes - 1,
};

ISR(USART_RX_vect) {
    const bool damaged = UCSR0A & (_BV(FE0) | _BV(DOR0));
    const uint8_t byte = UDR0;
    const uint8_t next = (received.in + 1) & receivedMask;
    if (next == received.out) {
        received.lost = true;
        return;
    }
    received.entries[received.in].byte = byte;
    received.entries[received.in].damaged = damaged || received.lost;
    received.lost = false;
    received.in = next;
}

ISR(USART_UDRE_vect) {
    if (toSend.out == toSend.in) {
        UCSR0B &= (uint8_t)~_BV(UDRIE0);
        return;
    }
    UDR0 = (uint8_t)toSend.bytes[toSend.out];
    toSend.out = (toSend.out + 1) & toSendMask;
}

bool sendReply(const char* bytes, uint8_t count) {
    const uint8_t waiting = (toSend.in - toSend.out) & toSendMask;
    if (count > toSendMask - waiting) return false;
    while (count-- > 0) {
        toSend.bytes[toSend.in] = *bytes++;
        toSend.in = (toSend.in + 1) & toSendMask;
    }
    ATOMIC_BLOCK(ATOMIC_FORCEON) {
        UCSR0B |= _BV(UDRIE0);
    }
    return true;
}

static void startLine(void) {
    UBRR0 = lineDivider;
    UCSR0C = _BV(UCSZ01) | _BV(UCSZ00); // 8 bits, no parity, one stop bit
    UCSR0B = _BV(RXEN0) | _BV(TXEN0) | _BV(RXCIE0);
}

// --- The analog input ----------------------------------------------------------------------------

#ifndef REFERENCE_MILLIVOLTS
#define REFERENCE_MILLIVOLTS 0 // nothing is wired to AREF
#endif
#if REFERENCE_MILLIVOLTS != 0 && (REFERENCE_MILLIVOLTS < 1000 || REFERENCE_MILLIVOLTS > 5000)
#error "the chip takes 1000 to 5000 mV at AREF"
#endif

uint16_t referenceMillivolts(void) {
    return REFERENCE_MILLIVOLTS ? REFERENCE_MILLIVOLTS : 5000;
}

static volatile uint16_t converted;
static volatile bool isConverted;

ISR(ADC_vect) {
    converted = ADC;
    isConverted = true;
}

// 125 kHz: a conversion takes 104 us, the first one after the converter was off 200 us. Switching
// it off is what drops a conversion that is under way.
void startConversion(uint8_t input) {
    const uint8_t enabled = _BV(ADEN) | _BV(ADIE) | _BV(ADPS2) | _BV(ADPS1) | _BV(ADPS0);
    if (ADCSRA & _BV(ADSC)) ADCSRA = 0;
    ADMUX = (uint8_t)((REFERENCE_MILLIVOLTS ? 0 : _BV(REFS0)) | input); // AREF, or the supply
    ADCSRA = enabled | _BV(ADIF);
    isConverted = false;
    ADCSRA = enabled | _BV(ADSC);
}

// --- Lights and interlock ------------------------------------------------------------------------

static volatile bool interlockOpened;

bool interlockIsClosed(void) {
    return !(PIND & _BV(interlockPortBit));
}

// The pin has changed.
ISR(PCINT2_vect) {
    if (interlockIsClosed()) return;
    cutLaser();
    interlockOpened = true;
}

uint8_t driveLaser(uint8_t level) {
    if (level == 0) cutLaser();
    if (!prepareLaser(level)) {
        cutLaser();
        return level == 0 ? 0 : laserOutputFailed; // with the gate shut it is dark all the same
    }
    if (level == 0) return 0;
    uint8_t trouble = 0;
    ATOMIC_BLOCK(ATOMIC_FORCEON) {
        if (interlockOpened || !interlockIsClosed())
            trouble = interlockWasOpen;
        else
            lightLaser(level);
    }
    if (trouble) cutLaser();
    return trouble;
}

void driveLamp(bool on) {
    if (on)
        PORTD |= _BV(lampPortBit);
    else
        PORTD &= (uint8_t)~_BV(lampPortBit);
}

// --- The main loop -------------------------------------------------------------------------------

static volatile uint8_t ticks;

ISR(TIMER2_COMPA_vect) {
    ++ticks;
}

static void startClock(void) {
    OCR2A = ticksPerMillisecond - 1;
    TCCR2A = _BV(WGM21);
    TCCR2B = _BV(CS22); // 16 MHz / 64
    TIMSK2 = _BV(OCIE2A);
}

static void startInterlock(void) {
    PORTD |= _BV(interlockPortBit); // pull-up
    PCMSK2 = _BV(PCINT23);
    PCICR = _BV(PCIE2);
}

// A short opening must not be lost between two looks at the pin.
static void watchInterlock(void) {
    bool opened = false;
    ATOMIC_BLOCK(ATOMIC_FORCEON) {
        opened = interlockOpened;
        interlockOpened = false;
    }
    if (opened || !interlockIsClosed()) openInterlock();
}

static uint8_t passedTicks;

static void passTime(void) {
    for (; passedTicks != ticks; ++passedTicks) passMillisecond();
}

static void takeReceived(void) {
    while (received.out != received.in) {
        receiveByte(received.entries[received.out].byte, received.entries[received.out].damaged);
        received.out = (received.out + 1) & receivedMask;
    }
}

static void takeConverted(void) {
    if (!isConverted) return;
    isConverted = false;
    takeConversion(converted);
}

// Idle (the mode at reset): the timers run on. Interrupts are held until it sleeps, so that what
// comes after the look wakes it.
static void sleepUnlessWanted(void) {
    cli();
    if (received.out == received.in && !isConverted && !interlockOpened && passedTicks == ticks) {
        sleep_enable();
        sei();
        sleep_cpu();
        sleep_disable();
    }
    sei();
}

int main(void) {
    startInterlock();
    sei();
    startLaserOutput();
    startBoard(resetFlags);
    startClock();
    startLine();
    wdt_enable(WDTO_120MS);
    for (;;) {
        wdt_reset();
        watchInterlock();
        passTime();
        takeReceived();
        takeConverted();
        sleepUnlessWanted();
    }
}
