// Lives through a range of random days, on several cores: `campaign --seeds 0..100000 --jobs 2`.
// Each job is a process of its own, so a day that crashes or hangs is only a failed seed.
// Asked to end (SIGTERM, SIGINT) it prints the table of the days until then.
// A failing seed prints what happened; `--seeds 7..7 --verbose` prints the log and the history of
// any.
#include "tests/doubles/doubles.h"
#include "tests/simulation/day/random_day.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <malloc.h>
#include <map>
#include <poll.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;
// What a day may take; then it hangs.
constexpr double longestDayCpuSeconds = 60;
constexpr std::chrono::minutes longestDay{30};

struct Range {
    uint32_t first = 0, last = 99;
    int jobs = 1;
    bool verbose = false;
};

struct Job {
    pid_t process = 0;
    int lines = -1;    // what it tells: "begin 7", "count sweeps 1", "failed lights", "end"
    uint32_t seed = 0; // of the day that it lives through
    bool living = false, failed = false; // a day has begun and not ended; it has failed
    Clock::time_point began;
    double cpuBegan = 0; // seconds of its process
    std::string rest;    // of a line that has not come whole
};

std::map<std::string, uint64_t> counts, failures;
uint64_t days = 0, failedDays = 0;
volatile std::sig_atomic_t enough = 0;

void liveThrough(const Range& range, uint64_t seed, int to) {
    FILE* lines = fdopen(to, "w");
    for (; seed <= range.last; seed += static_cast<unsigned>(range.jobs)) {
        std::fprintf(lines, "begin %u\n", static_cast<unsigned>(seed));
        std::fflush(lines);
        const RandomDay day = liveRandomDay(static_cast<uint32_t>(seed));
        if (range.verbose) {
            const std::string log = contentOf(logOfRandomDay);
            std::fwrite(log.data(), 1, log.size(), stderr);
        }
        removeTempDesktop();
        // What the doubles complain of: a test would fail.
        static int complaintsBefore = 0;
        const int complaints =
            testing::UnitTest::GetInstance()->ad_hoc_test_result().total_part_count();
        const bool complained = std::exchange(complaintsBefore, complaints) != complaints;
        if (range.verbose || !day.findings.empty()) {
            const std::string text = told(day);
            std::fwrite(text.data(), 1, text.size(), stderr);
        }
        for (const auto& [what, count] : day.counts)
            std::fprintf(lines, "count %llu %s\n", static_cast<unsigned long long>(count),
                         what.c_str());
        for (const std::string& rule : day.broken) std::fprintf(lines, "failed %s\n", rule.c_str());
        if (complained) std::fprintf(lines, "failed misuse\n");
        std::fprintf(lines, "end\n");
        std::fflush(lines);
    }
    std::fclose(lines);
}

void start(Job& job, const Range& range, uint64_t first) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    const pid_t process = fork();
    if (process < 0) std::abort();
    if (process == 0) {
        close(ends[0]);
        if (!std::freopen("/dev/null", "w", stdout)) std::abort(); // what the program prints
        liveThrough(range, first, ends[1]);
        std::_Exit(0);
    }
    close(ends[1]);
    job = {process, ends[0], static_cast<uint32_t>(first), false, false, Clock::now(), 0, {}};
}

double cpuSecondsOf(const Job& job) {
    clockid_t clock;
    timespec time{};
    if (clock_getcpuclockid(job.process, &clock) != 0 || clock_gettime(clock, &time) != 0) return 0;
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

bool hangs(const Job& job) {
    return job.living && (Clock::now() - job.began > longestDay ||
                          cpuSecondsOf(job) - job.cpuBegan > longestDayCpuSeconds);
}

void fails(Job& job, const std::string& rule) {
    ++failures[rule];
    if (!std::exchange(job.failed, true)) ++failedDays;
}

void hears(Job& job, const std::string& line) {
    std::istringstream words(line);
    std::string word, what;
    uint64_t number = 0;
    words >> word;
    if (word == "begin") {
        words >> job.seed;
        job.failed = false;
        job.began = Clock::now();
        job.cpuBegan = cpuSecondsOf(job);
    }
    if (word == "count" && words >> number && std::getline(words >> std::ws, what))
        counts[what] += number;
    if (word == "failed" && std::getline(words >> std::ws, what)) fails(job, what);
    if (word == "end") ++days;
    job.living = word != "end";
}

// What the job has told since; false once it is over, and then the next day has a new one.
bool follows(Job& job, const Range& range) {
    char text[4096];
    const ssize_t count = read(job.lines, text, sizeof text);
    for (ssize_t i = 0; i < count; ++i) {
        if (text[i] != '\n') {
            job.rest += text[i];
            continue;
        }
        hears(job, job.rest);
        job.rest.clear();
    }
    if (count > 0) return true;
    int status = 0;
    waitpid(job.process, &status, 0);
    close(job.lines);
    job.lines = -1;
    uint64_t next = uint64_t{job.seed} + static_cast<unsigned>(range.jobs);
    if (!job.living) { // it may have ended between two days, before its last one
        if (next > range.last) return false;
        job.seed = static_cast<uint32_t>(next);
        job.failed = false;
        next += static_cast<unsigned>(range.jobs);
    }
    const bool hung = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    std::fprintf(stderr, "seed %u\n%s (status %#x)\n", job.seed, hung ? "hung" : "crashed", status);
    ++days;
    fails(job, hung ? "hang" : "crash");
    if (next > range.last) return false;
    start(job, range, next);
    return true;
}

void printShare(const char* what, uint64_t part, uint64_t whole) {
    const double share = whole == 0 ? 0.0 : static_cast<double>(part) / static_cast<double>(whole);
    std::printf("%-40s %9.1f%%\n", what, 100.0 * share);
}

void printTable(double seconds) {
    std::printf("%-40s %10llu\n%-40s %10.0f\n", "days", static_cast<unsigned long long>(days),
                "seconds", seconds);
    for (const auto& [what, count] : counts)
        std::printf("%-40s %10llu\n", what.c_str(), static_cast<unsigned long long>(count));
    printShare("of all points measured and judged", counts["points judged"],
               counts["points measured"] + counts["points in doubt"]);
    printShare("of all days without device faults", counts["days without device faults"], days);
    std::printf("%-40s %10llu\n", "days that failed", static_cast<unsigned long long>(failedDays));
    for (const auto& [rule, count] : failures)
        std::printf("  %-38s %10llu\n", rule.c_str(), static_cast<unsigned long long>(count));
}

} // namespace

int main(int argc, char** argv) {
    Range range;
    for (int i = 1; i < argc; ++i) {
        const bool more = i + 1 < argc;
        if (std::strcmp(argv[i], "--verbose") == 0)
            range.verbose = true;
        else if (more && std::strcmp(argv[i], "--jobs") == 0)
            range.jobs = std::max(1, std::atoi(argv[++i]));
        else if (!more || std::strcmp(argv[i], "--seeds") != 0 ||
                 std::sscanf(argv[++i], "%u..%u", &range.first, &range.last) != 2)
            return std::fprintf(stderr, "campaign [--seeds first..last] [--jobs n] [--verbose]\n"),
                   2;
    }
    // The memory of a frame, 5 MB, is kept for the next one and not given back to the system.
    mallopt(M_MMAP_THRESHOLD, 32 << 20);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    const Clock::time_point began = Clock::now();
    std::vector<Job> jobs(static_cast<size_t>(range.jobs));
    for (size_t i = 0; i < jobs.size() && range.first + i <= range.last; ++i)
        start(jobs[i], range, range.first + i);
    for (const int signal : {SIGTERM, SIGINT}) std::signal(signal, [](int) { enough = 1; });
    for (bool anyRuns = true; anyRuns && !enough;) {
        std::vector<pollfd> polled;
        for (const Job& job : jobs) polled.push_back({job.lines, POLLIN, 0});
        const bool interrupted = poll(polled.data(), polled.size(), 1000) < 0;
        anyRuns = interrupted;
        for (size_t i = 0; i < jobs.size() && !interrupted; ++i) {
            Job& job = jobs[i];
            if (job.lines >= 0 && hangs(job)) kill(job.process, SIGKILL);
            anyRuns |= job.lines >= 0 && (polled[i].revents == 0 || follows(job, range));
        }
    }
    for (const Job& job : jobs)
        if (job.lines >= 0) kill(job.process, SIGKILL);
    printTable(std::chrono::duration<double>(Clock::now() - began).count());
    return failedDays == 0 ? 0 : 1;
}
