// The port for scripts beside a plain socket of the same run: how fast it answers, what it costs a
// scan, and that the window lives whatever its clients do. Each figure is printed.
#include <winsock2.h>

#include "tests/window/program_run.h"

#include <atomic>
#include <chrono>
#include <numeric>
#include <thread>

namespace {

constexpr size_t mapSide = 1000;
constexpr char position[] = "STAG:POS?\n";

using Clock = std::chrono::steady_clock;
double msSince(Clock::time_point began) {
    return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

sockaddr_in addressOf(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

class Socket {
public:
    explicit Socket(SOCKET taken) : socket(taken) {
        const BOOL atOnce = TRUE;
        setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&atOnce),
                   sizeof atOnce);
        const DWORD longest = patiently;
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&longest),
                   sizeof longest);
    }
    explicit Socket(uint16_t port) : Socket(::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)) {
        const sockaddr_in address = addressOf(port);
        connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    }
    ~Socket() { closesocket(socket); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    // All of it; how much the far end took until it hung up.
    size_t send(const std::string& bytes) const {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const int count =
                ::send(socket, bytes.data() + sent, static_cast<int>(bytes.size() - sent), 0);
            if (count <= 0) break;
            sent += static_cast<size_t>(count);
        }
        return sent;
    }
    // At least so many bytes, or up to a line feed at their end; less when it is closed or silent.
    std::string receive(size_t atLeast = 0) const {
        std::string bytes;
        std::vector<char> part(1 << 18);
        while (atLeast > 0 ? bytes.size() < atLeast : !bytes.ends_with('\n')) {
            const int count = recv(socket, part.data(), static_cast<int>(part.size()), 0);
            if (count <= 0) break;
            bytes.append(part.data(), static_cast<size_t>(count));
        }
        return bytes;
    }
    std::string ask(const std::string& question) const {
        send(question);
        return receive();
    }
    void vanish() const { // without a farewell
        const linger none{1, 0};
        setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&none),
                   sizeof none);
    }

private:
    SOCKET socket;
};

// A server that sends back what comes; to "block\n" so many bytes at once.
class Echo {
public:
    explicit Echo(size_t blockSize) : block(blockSize, 'b'), thread([this] { serve(); }) {
        while (port == 0) Sleep(1);
    }
    ~Echo() { thread.join(); }
    Echo(const Echo&) = delete;
    Echo& operator=(const Echo&) = delete;

    std::atomic<uint16_t> port{0};

private:
    void serve() {
        const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
        sockaddr_in address = addressOf(0);
        int size = sizeof address;
        bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        listen(listener, 1);
        getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
        port = ntohs(address.sin_port);
        const Socket client(accept(listener, nullptr, nullptr));
        closesocket(listener);
        for (std::string line; !(line = client.receive()).empty();)
            client.send(line == "block\n" ? block : line);
    }

    const std::string block;
    std::thread thread; // the last: it uses what stands above
};

double askMs(const Socket& client, int questions) {
    const auto began = Clock::now();
    for (int i = 0; i < questions; ++i)
        if (client.ask(position).empty()) return 1e9;
    return msSince(began);
}

// How long the main window let a message wait, at most.
class Latency {
public:
    explicit Latency(HWND window)
        : thread([this, window] {
              while (!over) {
                  const auto began = Clock::now();
                  DWORD_PTR result = 0;
                  SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_NORMAL, quickly, &result);
                  worst = std::max(worst, msSince(began));
                  Sleep(2);
              }
          }) {}
    ~Latency() { end(); }
    Latency(const Latency&) = delete;
    Latency& operator=(const Latency&) = delete;

    double end() { // ms
        over = true;
        if (thread.joinable()) thread.join();
        return worst;
    }

private:
    std::atomic<bool> over{false};
    double worst = 0; // of the thread, until that has ended
    std::thread thread;
};

} // namespace

class DoorSpeed : public ProgramRun {
protected:
    void SetUp() override {
        ProgramRun::SetUp();
        WSADATA data;
        ASSERT_EQ(WSAStartup(MAKEWORD(2, 2), &data), 0);
        ASSERT_NO_FATAL_FAILURE(writeLabSettings(4.0));
        std::FILE* file = _wfopen((dataRoot() / "Options.ini").c_str(), L"wb");
        ASSERT_TRUE(file);
        std::fprintf(file,
                     "port for scripts = %d\nscripts may connect = yes\n"
                     "scripts may switch laser and bias = yes\n",
                     port);
        std::fclose(file);
        program = startProgram(layDesk(true));
        ASSERT_TRUE(awaitMainWindow(program, patiently));
        ASSERT_TRUE(awaitPicture());
    }

    // Once the program has noticed that the one before is gone.
    std::unique_ptr<Socket> client() const {
        std::unique_ptr<Socket> made;
        await(
            [&] {
                made = std::make_unique<Socket>(port);
                return made->ask("*IDN?\n").starts_with("Lumascan");
            },
            quickly);
        return made;
    }
    static std::string awaitEnd(const Socket& client) {
        std::string state;
        while ((state = client.ask("SCAN:STAT?\n")).starts_with("RUN")) Sleep(10);
        return state;
    }
    void readBlocksBesideEcho(const Socket& client, const Socket& echo, size_t size) const;
    void misbehave(size_t blockSize) const;

    const uint16_t port = static_cast<uint16_t>(30000 + GetCurrentProcessId() * 37 % 9000 +
                                                GetTickCount() / 16 % 1000);
};

void DoorSpeed::readBlocksBesideEcho(const Socket& client, const Socket& echo, size_t size) const {
    double mapMs = 1e9, blockMs = 1e9;
    for (int round = 0; round < 7; ++round) {
        auto began = Clock::now();
        echo.send("block\n");
        ASSERT_EQ(echo.receive(size).size(), size);
        blockMs = std::min(blockMs, msSince(began));
        began = Clock::now();
        client.send("SCAN:DATA? 0\n");
        ASSERT_EQ(client.receive(size).size(), size);
        mapMs = std::min(mapMs, msSince(began));
    }
    std::printf("a map of %.1f MB: %.2f ms, a plain socket %.2f ms: %.2f of its rate\n",
                static_cast<double>(size) / 1e6, mapMs, blockMs, blockMs / mapMs);
    EXPECT_GE(blockMs / mapMs, 0.5);
}

// One after the other; some are cut off in the middle.
void DoorSpeed::misbehave(size_t blockSize) const {
    {
        const auto shouter = client();
        shouter->send(std::string(1 << 20, 'x') + "\n");
        EXPECT_EQ(shouter->ask("SYST:ERR?\n").substr(0, 4), "-363");
        shouter->send(std::string("*ESE\0 1\n", 8));
        EXPECT_EQ(shouter->ask("SYST:ERR?\n").substr(0, 4), "-101");
    }
    {
        const auto deaf = client();
        std::string many;
        for (int i = 0; i < 10'000; ++i) many += "SYST:HELP?\n";
        EXPECT_EQ(deaf->send(many), many.size()); // what the system takes for the program
        Sleep(1000);
        deaf->vanish();
    }
    {
        const auto hasty = client();
        hasty->send("SCAN:DATA? 0\n");
        hasty->receive(blockSize / 3);
        hasty->vanish();
    }
    const auto silent = client();
    EXPECT_EQ(Socket(port).ask("*IDN?\n"), ""); // a second one
    Sleep(300);
}

TEST_F(DoorSpeed, AnswersAsAPlainSocketAndKeepsTheWindowAlive) {
    double quiet = 0;
    {
        Latency latency(program.window);
        Sleep(1000);
        quiet = latency.end();
    }
    auto asker = client();
    asker->send("SCAN:AREA 0,0,99.9,99.9;STEP 0.1;STAR\n");
    ASSERT_TRUE(
        await([&] { return !asker->ask("SCAN:STAT?\n").starts_with("RUN,0,"); }, patiently));
    asker->send("SCAN:STOP\n");
    EXPECT_EQ(awaitEnd(*asker), "STOPPED\n") << asker->ask("SYST:ERR?;ERR?\n");
    int columns = 0, rows = 0;
    std::sscanf(asker->ask("SCAN:DATA:SIZE?\n").c_str(), "%d,%d", &columns, &rows);
    ASSERT_GE(columns * rows, 990'000);
    const std::string payload = std::to_string(columns * rows * 4);
    const size_t size = 2 + payload.size() + static_cast<size_t>(columns * rows * 4) + 1;

    Echo server(size);
    const Socket echo(server.port);
    double echoMs = 1e9, askedMs = 1e9;
    constexpr int questions = 400;
    for (int round = 0; round < 7; ++round) {
        echoMs = std::min(echoMs, askMs(echo, questions) / questions);
        askedMs = std::min(askedMs, askMs(*asker, questions) / questions);
    }
    std::printf("STAG:POS? %.0f times a second, a plain socket's echo %.0f: %.2f of its rate\n",
                1000 / askedMs, 1000 / echoMs, echoMs / askedMs);
    EXPECT_GE(echoMs / askedMs, 0.1);
    readBlocksBesideEcho(*asker, echo, size);
    asker.reset();

    Latency latency(program.window);
    misbehave(size);
    const double worst = latency.end();
    std::printf("the window's longest silence: %.1f ms, without clients %.1f ms\n", worst, quiet);
    EXPECT_LE(worst, std::max(100.0, 3 * quiet));
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}

TEST_F(DoorSpeed, LetsAScanTakeItsTime) {
    const auto asker = client();
    asker->send("SCAN:AREA 0,0,10,6;STEP 2\n");
    double alone = 1e9, polled = 1e9;
    // The best of each: what else this computer does takes more than the client may.
    for (int round = 0; round < 8 && (round < 2 || polled / alone > 1.01); ++round) {
        auto began = Clock::now();
        asker->send("SCAN:STAR;*OPC?\n");
        ASSERT_EQ(asker->receive(), "1\n");
        alone = std::min(alone, msSince(began));
        began = Clock::now();
        asker->send("SCAN:STAR\n");
        ASSERT_EQ(awaitEnd(*asker), "DONE\n") << asker->ask("SYST:ERR?;ERR?\n");
        polled = std::min(polled, msSince(began));
    }
    std::printf("a scan of 6 x 4 points: %.0f ms, polled at 100 Hz %.0f ms: %.3f\n", alone, polled,
                polled / alone);
    EXPECT_LE(polled / alone, 1.03);
    ASSERT_NO_FATAL_FAILURE(closeProgram());
}
