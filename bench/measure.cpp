// measure TIMES REPORT PROGRAM ARGUMENT...: runs the program TIMES times, one after the other, and writes to
// the file REPORT "SECONDS CPU_SECONDS MAX_RSS_KIB": the sums, with the children of the program, and the most
// memory that one of the processes had. A small program of its own, because a process begins with the peak of
// the one it came from.
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int count, char** words)
{
    if (count < 4) {
        std::fputs("measure TIMES REPORT PROGRAM ARGUMENT...\n", stderr);
        return 2;
    }
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    prctl(PR_SET_CHILD_SUBREAPER, 1); // some programs leave children behind
    std::chrono::duration<double> took{0};
    double processor = 0;
    long memory = 0;
    for (int left = std::atoi(words[1]); left > 0; --left) {
        const auto began = std::chrono::steady_clock::now();
        pid_t child = 0;
        int status = 0;
        rusage used{};
        if (posix_spawnp(&child, words[3], nullptr, nullptr, words + 3, environ) != 0) {
            std::perror(words[3]);
            return 127;
        }
        for (pid_t ended = 0; (ended = wait4(-1, &status, 0, &used)) > 0;) {
            processor += seconds(used.ru_utime) + seconds(used.ru_stime);
            memory = std::max(memory, used.ru_maxrss);
            if (ended == child) {
                took += std::chrono::steady_clock::now() - began;
                if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
                    return 1;
                }
            }
        }
    }
    std::FILE* report = std::fopen(words[2], "w");
    if (report == nullptr || std::fprintf(report, "%.6f %.6f %ld\n", took.count(), processor, memory) < 0 ||
        std::fclose(report) != 0) {
        std::perror(words[2]);
        return 1;
    }
}
