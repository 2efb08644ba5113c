// A serial port, read and written without overlap.
#include "platform/serial_port.h"

#include "platform/win32/handles.h"
#include "platform/win32/system_words.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdio>
#include <cstring>
#include <vector>

static_assert(sizeof(DCB) == 28 && sizeof(COMMTIMEOUTS) == 20);
static_assert(sizeof(SerialLineState) == sizeof(DCB));
static_assert(offsetof(SerialLineState, flags) == offsetof(DCB, BaudRate) + sizeof(DWORD));
static_assert(offsetof(SerialLineState, byteSize) == offsetof(DCB, ByteSize));
static_assert(offsetof(SerialLineState, reserved1) == offsetof(DCB, wReserved1));
static_assert(sizeof(SerialTimeouts) == sizeof(COMMTIMEOUTS));

static std::atomic<DWORD> lastTrouble = ERROR_SUCCESS;

PortHandle openSerialPort(const char* deviceName) {
    HANDLE port = CreateFileA(deviceName, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                              0, nullptr);
    if (port == INVALID_HANDLE_VALUE) lastTrouble = GetLastError();
    return reinterpret_cast<PortHandle>(port);
}

void closeSerialPort(PortHandle port) {
    CloseHandle(native(port));
}

std::string serialPortTrouble() {
    return systemWords(lastTrouble);
}

std::string serialPortNames() {
    std::vector<char> devices(65536); // names ended by a zero each, and by one more
    const DWORD size = QueryDosDeviceA(nullptr, devices.data(), static_cast<DWORD>(devices.size()));
    std::vector<int> numbers;
    for (DWORD at = 0; at < size; ++at) {
        int number = 0, length = 0;
        const char* name = devices.data() + at;
        if (std::sscanf(name, "COM%d%n", &number, &length) == 1 && name[length] == '\0')
            numbers.push_back(number);
        at += static_cast<DWORD>(std::strlen(name));
    }
    std::sort(numbers.begin(), numbers.end());
    std::string names;
    for (const int number : numbers)
        names += (names.empty() ? "COM" : ", COM") + std::to_string(number);
    return names;
}

int32_t readLineState(PortHandle port, SerialLineState& state) {
    auto block = std::bit_cast<DCB>(state);
    BOOL result = GetCommState(native(port), &block);
    state = std::bit_cast<SerialLineState>(block);
    return result;
}

int32_t writeLineState(PortHandle port, const SerialLineState& state) {
    auto block = std::bit_cast<DCB>(state);
    return SetCommState(native(port), &block);
}

int32_t writeTimeouts(PortHandle port, const SerialTimeouts& timeouts) {
    auto block = std::bit_cast<COMMTIMEOUTS>(timeouts);
    return SetCommTimeouts(native(port), &block);
}

int32_t readTimeouts(PortHandle port, SerialTimeouts& timeouts) {
    auto block = std::bit_cast<COMMTIMEOUTS>(timeouts);
    BOOL result = GetCommTimeouts(native(port), &block);
    timeouts = std::bit_cast<SerialTimeouts>(block);
    return result;
}

int32_t readSerial(PortHandle port, void* buffer, uint32_t capacity, uint32_t& bytesMoved) {
    DWORD moved = 0;
    BOOL result = ReadFile(native(port), buffer, capacity, &moved, nullptr);
    bytesMoved = moved;
    return result;
}

int32_t writeSerial(PortHandle port, const void* bytes, uint32_t count, uint32_t& bytesMoved) {
    DWORD moved = 0;
    BOOL result = WriteFile(native(port), bytes, count, &moved, nullptr);
    bytesMoved = moved;
    return result;
}

void discardReceived(PortHandle port) {
    PurgeComm(reinterpret_cast<HANDLE>(port), PURGE_RXCLEAR);
}
