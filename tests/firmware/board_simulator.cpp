// Runs the laser board's program, the very .hex, in simavr: its chip cycle by cycle, with what is
// wired to it. A program of its own because simavr is GPL-3; it shares nothing with the others but
// bytes.
//
//   board_simulator FIRMWARE.hex [--mcp4725]
//       under orders: reads them on standard input, tells on standard output what happens
//   board_simulator FIRMWARE.hex [--deaf MS] --line LINK --light LINK
//       in real time: its serial line and the light side of its pins are two pseudo-terminals. Each
//       opening of the line resets the board, whose boot loader is then deaf for MS; without MS
//       nothing does. The light side is the laboratory's board, asked in its own protocol: the
//       pins' levels go there as "G 5 n" and "D 6 n", a conversion asks "R0 1".
//
// Orders, one on each line; times are cycles of 16 MHz:
//   run T         until T; the answer ends with "at T"
//   send HEX      bytes into the line, behind those under way, 9600 baud
//   damage        the next byte of the line comes without its stop bit
//   interlock N   1 closed (at first), 0 open
//   reset N       the chip is reset and stands still for N cycles, its pins floating; what comes in
//                 that time is lost
//   hang          the program is caught in an endless loop, interrupts off
//   peek N        answers "value N" with the byte of the chip's memory
//   converter N   the converter is 0 unplugged, 1 plugged in, which powers it on
// What happens:
//   laser T N     the light that the laser is told, N of 4096; 0 since the pin fell at T
//   lamp T N      1 on, 0 off
//   byte T N      will have left the board at T
//   convert T N   analog input N; the next line on standard input is its counts, 0..1023
#include <simavr/avr_adc.h>
#include <simavr/avr_ioport.h>
#include <simavr/avr_twi.h>
#include <simavr/avr_uart.h>
#include <simavr/sim_avr.h>
#include <simavr/sim_cycle_timers.h>
#include <simavr/sim_hex.h>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>

namespace {

constexpr uint32_t clockHz = 16'000'000;
constexpr uint64_t lineByteCycles = clockHz * 10 / 9600; // start bit, 8 bits, stop bit
constexpr uint64_t windowCycles = 4096;                  // 16 periods of the laser's pulses
constexpr int laserBit = 5, lampBit = 6, interlockBit = 7;

// The board's surroundings.
struct Outside {
    std::function<void(uint64_t cycle, int of4096)> laser;
    std::function<void(uint64_t cycle, bool on)> lamp;
    std::function<void(uint64_t cycle, uint8_t byte)> byteLeaves;
    std::function<int(uint64_t cycle, int input)> counts;
};

// The converter on the I2C bus, as its data sheet has it: powered on it gives half its range.
struct Converter {
    static constexpr int address = 0x62;
    bool present = true;
    int value = 0x800, stored = 0x800;
    bool selected = false;
    size_t place = 0; // in the message
    uint8_t message[3] = {};
    avr_irq_t* bus = nullptr;

    void plug(bool in) {
        present = in;
        value = in ? stored : 0;
    }
    void take(uint8_t byte) {
        if (place < sizeof message) message[place++] = byte;
        const bool fast = message[0] >> 6 == 0;
        if (fast && place == 2) {
            value = (message[0] & 0x0F) << 8 | message[1];
            place = 0;
        } else if (!fast && place == 3) {
            value = message[1] << 4 | message[2] >> 4;
            if (message[0] >> 5 == 3) stored = value;
            place = 0;
        }
    }
    uint8_t give() {
        const int state[] = {0xC0, value >> 4, value << 4, stored >> 8, stored};
        return static_cast<uint8_t>(state[std::min<size_t>(place++, 4)]);
    }
    void onBus(uint32_t raw) {
        avr_twi_msg_irq_t in;
        in.u.v = raw;
        if (in.u.twi.msg & TWI_COND_STOP) selected = false;
        if (in.u.twi.msg & TWI_COND_START) {
            selected = present && in.u.twi.addr >> 1 == address;
            place = 0;
            if (selected) avr_raise_irq(bus, avr_twi_irq_msg(TWI_COND_ACK, in.u.twi.addr, 1));
        }
        if (!selected) return;
        if (in.u.twi.msg & TWI_COND_WRITE) {
            avr_raise_irq(bus, avr_twi_irq_msg(TWI_COND_ACK, in.u.twi.addr, 1));
            take(static_cast<uint8_t>(in.u.twi.data));
        } else if (in.u.twi.msg & TWI_COND_READ) {
            avr_raise_irq(bus, avr_twi_irq_msg(TWI_COND_READ, in.u.twi.addr, give()));
        }
    }
};

class Board {
public:
    Board(const char* firmware, bool hasConverter, Outside surroundings)
        : outside(std::move(surroundings)), withConverter(hasConverter) {
        avr = avr_make_mcu_by_name("atmega328p");
        if (!avr || avr_init(avr) != 0) fail("simavr does not know the chip");
        avr->frequency = clockHz;
        avr->vcc = avr->avcc = avr->aref = 5000;
        avr->sleep = [](avr_t*, avr_cycle_count_t) {}; // whoever runs it keeps the time
        avr->log = LOG_ERROR;
        uint32_t size = 0, start = 0;
        uint8_t* code = read_ihex_file(firmware, &size, &start);
        if (!code) fail("no firmware");
        std::memcpy(avr->flash + start, code, size);
        std::free(code);
        avr->codeend = avr->flashend;
        for (avr_io_t* part = avr->io_port; part; part = part->next)
            if (std::strcmp(part->kind, "uart") == 0) uart = reinterpret_cast<avr_uart_t*>(part);
        if (!uart) fail("simavr's chip has no serial port");
        uint32_t noFlags = 0;
        avr_ioctl(avr, AVR_IOCTL_UART_SET_FLAGS('0'), &noFlags);

        listen(AVR_IOCTL_IOPORT_GETIRQ('D'), laserBit,
               [](avr_irq_t*, uint32_t high, void* board) { self(board).onLaserPin(high & 1); });
        listen(AVR_IOCTL_IOPORT_GETIRQ('D'), lampBit,
               [](avr_irq_t*, uint32_t high, void* board) { self(board).onLampPin(high & 1); });
        listen(AVR_IOCTL_UART_GETIRQ('0'), UART_IRQ_OUTPUT,
               [](avr_irq_t*, uint32_t byte, void* board) { self(board).onByte(byte); });
        listen(AVR_IOCTL_ADC_GETIRQ, ADC_IRQ_OUT_TRIGGER,
               [](avr_irq_t*, uint32_t mux, void* board) { self(board).onConversion(mux); });
        listen(AVR_IOCTL_TWI_GETIRQ(0), TWI_IRQ_OUTPUT,
               [](avr_irq_t*, uint32_t message, void* board) {
                   self(board).converter.onBus(message);
               });
        converter.bus = irq(AVR_IOCTL_TWI_GETIRQ(0), TWI_IRQ_INPUT);
        converter.present = hasConverter;
        closeInterlock(true);
    }

    uint64_t cycle() const { return avr->cycle; }

    void runUntil(uint64_t end) {
        while (avr->cycle < end) {
            const uint64_t next = nextStop(end);
            const auto wake = [](avr_t*, avr_cycle_count_t, void*) { return avr_cycle_count_t{0}; };
            if (avr->cycle < deafUntil)
                avr->cycle = std::min(next, deafUntil);
            else if (next > avr->cycle)
                avr_cycle_timer_register(avr, next - avr->cycle, wake, this);
            while (avr->cycle < next && avr->cycle >= deafUntil) {
                const int state = avr_run(avr);
                if (state == cpu_Done || state == cpu_Crashed) fail("the program crashed");
            }
            deliver();
            while (avr->cycle >= windowEnd) endWindow();
        }
    }

    void send(uint8_t byte) {
        if (line.empty()) lineFree = std::max(lineFree, avr->cycle);
        line.push_back(byte);
    }
    void damageNext() { damaged = true; }

    void closeInterlock(bool closed) {
        avr_ioport_external_t level = {};
        level.name = 'D';
        level.mask = 1 << interlockBit;
        level.value = closed ? 0 : 1 << interlockBit;
        avr_ioctl(avr, AVR_IOCTL_IOPORT_SET_EXTERNAL('D'), &level);
        avr_raise_irq(irq(AVR_IOCTL_IOPORT_GETIRQ('D'), interlockBit), closed ? 0 : 1);
    }

    void reset(uint64_t deafCycles) {
        avr_reset(avr);
        avr->state = cpu_Running;
        onLaserPin(false);
        onLampPin(false);
        deafUntil = avr->cycle + deafCycles;
    }

    void hang() {
        const uint16_t endless = 0xCFFF; // rjmp .-2
        avr->pc = avr->flashend - 1;
        std::memcpy(avr->flash + avr->pc, &endless, sizeof endless);
        avr->sreg[S_I] = 0;
        avr->state = cpu_Running;
    }

    int peek(size_t address) const { return avr->data[address]; }
    Converter converter;

private:
    avr_t* avr = nullptr;
    avr_uart_t* uart = nullptr;
    Outside outside;
    bool withConverter;
    std::deque<uint8_t> line; // bytes that have not begun to arrive
    uint64_t lineFree = 0;    // when the next may begin
    uint64_t deafUntil = 0;
    bool damaged = false;
    uint64_t replyFree = 0; // when the last byte to the computer has gone
    bool laserHigh = false, lampHigh = false;
    uint64_t changed = 0, fell = 0, high = 0, windowEnd = windowCycles;
    int lastWindow = 0, toldLaser = 0;

    static Board& self(void* board) { return *static_cast<Board*>(board); }
    [[noreturn]] static void fail(const char* why) {
        std::fprintf(stderr, "board_simulator: %s\n", why);
        std::_Exit(1);
    }
    avr_irq_t* irq(uint32_t group, int index) const { return avr_io_getirq(avr, group, index); }
    void listen(uint32_t group, int index, avr_irq_notify_t notify) {
        avr_irq_register_notify(irq(group, index), notify, this);
    }

    uint64_t nextStop(uint64_t end) const {
        const uint64_t next = std::min(end, windowEnd);
        return line.empty() ? next : std::min(next, std::max(lineFree, avr->cycle));
    }

    // simavr has the byte in its register one byte's time after it was handed over; it counts a
    // parity bit into that which the line does not have.
    void deliver() {
        if (line.empty() || avr->cycle < lineFree) return;
        uart->cycles_per_byte = lineByteCycles;
        const uint32_t flags = damaged ? UART_INPUT_FE : 0;
        if (avr->cycle >= deafUntil)
            avr_raise_irq(irq(AVR_IOCTL_UART_GETIRQ('0'), UART_IRQ_INPUT), line.front() | flags);
        damaged = false;
        line.pop_front();
        lineFree += lineByteCycles;
    }

    void onLaserPin(bool now) {
        if (now == laserHigh) return;
        countHigh();
        if (!now) fell = avr->cycle;
        laserHigh = now;
    }
    void countHigh() {
        const uint64_t until = std::min(avr->cycle, windowEnd);
        if (laserHigh && until > changed) high += until - changed;
        changed = until;
    }
    // Told once it is steady, but darkness at once. A few cycles more or less are the instruction
    // during which the timer's edge fell.
    void endWindow() {
        countHigh();
        int light = static_cast<int>(high);
        if (withConverter) light = static_cast<int>(high) * converter.value / 4095;
        const bool steady = std::abs(light - lastWindow) <= 12;
        if (light == 0 ? toldLaser != 0 : steady && std::abs(light - toldLaser) > 12) {
            toldLaser = light;
            outside.laser(light == 0 ? fell : avr->cycle, light);
        }
        lastWindow = light;
        high = 0;
        changed = windowEnd;
        windowEnd += windowCycles;
    }

    void onLampPin(bool now) {
        if (now == lampHigh) return;
        lampHigh = now;
        outside.lamp(avr->cycle, now);
    }

    void onByte(uint32_t byte) {
        replyFree = std::max(replyFree, avr->cycle) + lineByteCycles;
        outside.byteLeaves(replyFree, static_cast<uint8_t>(byte));
    }

    // simavr takes millivolts and has 1023 steps to the reference where the chip has 1024.
    void onConversion(uint32_t raw) {
        avr_adc_mux_t mux = {};
        std::memcpy(&mux, &raw, sizeof raw);
        const int input = static_cast<int>(mux.src);
        const int counts = std::clamp(outside.counts(avr->cycle, input), 0, 1023);
        const auto millivolts = static_cast<uint32_t>((counts * 5000 + 1022) / 1023);
        avr_raise_irq(irq(AVR_IOCTL_ADC_GETIRQ, ADC_IRQ_ADC0 + input), millivolts);
    }
};

// --- Under orders --------------------------------------------------------------------------------

void tell(const char* what, uint64_t cycle, int number) {
    std::printf("%s %llu %d\n", what, static_cast<unsigned long long>(cycle), number);
}

void obey(Board& board) {
    for (std::string order; std::getline(std::cin, order);) {
        std::istringstream words(order);
        std::string verb, hex;
        uint64_t number = 0;
        words >> verb;
        if (verb == "send")
            words >> hex;
        else
            words >> number;
        for (size_t at = 0; at + 1 < hex.size(); at += 2)
            board.send(static_cast<uint8_t>(std::stoi(hex.substr(at, 2), nullptr, 16)));
        if (verb == "run") board.runUntil(number);
        if (verb == "damage") board.damageNext();
        if (verb == "interlock") board.closeInterlock(number != 0);
        if (verb == "reset") board.reset(number);
        if (verb == "hang") board.hang();
        if (verb == "converter") board.converter.plug(number != 0);
        if (verb == "peek") std::printf("value %d\n", board.peek(number));
        if (verb == "run") std::printf("at %llu\n", static_cast<unsigned long long>(board.cycle()));
        if (verb == "run" || verb == "peek") std::fflush(stdout);
    }
}

Outside toldOnStandardOutput() {
    return {[](uint64_t cycle, int light) { tell("laser", cycle, light); },
            [](uint64_t cycle, bool on) { tell("lamp", cycle, on); },
            [](uint64_t cycle, uint8_t byte) { tell("byte", cycle, byte); },
            [](uint64_t cycle, int input) {
                tell("convert", cycle, input);
                std::fflush(stdout);
                std::string counts;
                std::getline(std::cin, counts);
                return std::atoi(counts.c_str());
            }};
}

// --- In real time --------------------------------------------------------------------------------

// A pseudo-terminal whose other end bears the name.
int openTerminal(const char* link) {
    int own = -1, other = -1;
    char name[64];
    termios raw = {};
    cfmakeraw(&raw);
    if (openpty(&own, &other, name, &raw, nullptr) != 0) std::perror("openpty"), std::_Exit(1);
    unlink(link);
    if (symlink(name, link) != 0) std::perror(link), std::_Exit(1);
    close(other); // so that it shows when somebody opens and closes it
    fcntl(own, F_SETFL, O_NONBLOCK);
    return own;
}

bool isOpen(int terminal) {
    pollfd look{terminal, POLLIN, 0};
    poll(&look, 1, 0);
    return !(look.revents & POLLHUP);
}

std::string readWithin(int terminal, int milliseconds) {
    pollfd look{terminal, POLLIN, 0};
    char bytes[256];
    if (poll(&look, 1, milliseconds) <= 0) return {};
    const ssize_t count = read(terminal, bytes, sizeof bytes);
    return count > 0 ? std::string(bytes, static_cast<size_t>(count)) : std::string();
}

void say(int terminal, const std::string& command) {
    if (write(terminal, command.c_str(), command.size() + 1) < 0) std::perror("light");
}

int askCounts(int terminal, int input) {
    if (input != 0) return 0;
    say(terminal, "R0 1");
    std::string reply = readWithin(terminal, 1000);
    for (std::string more; !(more = readWithin(terminal, 3)).empty();) reply += more;
    return std::atoi(reply.c_str());
}

[[noreturn]] void runInRealTime(const char* firmware, int deafMs, const char* line,
                                const char* light) {
    const int lineEnd = openTerminal(line), lightEnd = openTerminal(light);
    Board board(firmware, false,
                {[=](uint64_t, int of4096) {
                     const long level = std::lround(of4096 * 255.0 / 4096);
                     say(lightEnd, "G 5 " + std::to_string(level));
                 },
                 [=](uint64_t, bool on) { say(lightEnd, on ? "D 6 5" : "D 6 0"); },
                 [=](uint64_t, uint8_t byte) {
                     if (write(lineEnd, &byte, 1) < 0) std::perror("line");
                 },
                 [=](uint64_t, int input) { return askCounts(lightEnd, input); }});
    const auto began = std::chrono::steady_clock::now();
    bool wasOpen = false;
    for (;;) {
        const bool open = isOpen(lineEnd);
        if (open && !wasOpen && deafMs > 0)
            board.reset(static_cast<uint64_t>(deafMs) * (clockHz / 1000));
        wasOpen = open;
        // What was sent before it was closed is still there.
        for (const char byte : readWithin(lineEnd, 1)) board.send(static_cast<uint8_t>(byte));
        if (!open) usleep(1000);
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - began;
        board.runUntil(static_cast<uint64_t>(passed.count() * clockHz));
    }
}

} // namespace

int main(int count, char** words) {
    const char *line = nullptr, *light = nullptr;
    int deafMs = 0;
    bool withConverter = false;
    for (int i = 2; i < count; ++i) {
        const std::string option = words[i];
        if (option == "--mcp4725") withConverter = true;
        if (i + 1 == count) break;
        if (option == "--line") line = words[i + 1];
        if (option == "--light") light = words[i + 1];
        if (option == "--deaf") deafMs = std::atoi(words[i + 1]);
    }
    if (count < 2) return 2;
    if (line && light) runInRealTime(words[1], deafMs, line, light);
    Board board(words[1], withConverter, toldOnStandardOutput());
    obey(board);
    std::fflush(stdout);
    std::_Exit(0); // simavr keeps some of its memory
}
