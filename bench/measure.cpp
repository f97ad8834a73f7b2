// measure REPORT PROGRAM ARGUMENT...: runs the program and writes "SECONDS CPU_SECONDS MAX_RSS_KIB" to the file
// REPORT. Processor time is the sum over the program and its children, memory the most that one of these
// processes had. It is a program of its own because a process starts with the peak of memory of the one that it
// was forked from.
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

int main(int count, char** arguments)
{
    if (count < 3) {
        std::fputs("measure REPORT PROGRAM ARGUMENT...\n", stderr);
        return 2;
    }
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    prctl(PR_SET_CHILD_SUBREAPER, 1); // some programs leave children behind
    const auto began = std::chrono::steady_clock::now();
    pid_t child = 0;
    if (posix_spawnp(&child, arguments[2], nullptr, nullptr, arguments + 2, environ) != 0) {
        std::perror(arguments[2]);
        return 127;
    }
    std::chrono::duration<double> took{0};
    double processor = 0;
    long memory = 0;
    int status = 0;
    rusage used{};
    for (pid_t ended = 0; (ended = wait4(-1, &status, 0, &used)) > 0;) {
        processor += seconds(used.ru_utime) + seconds(used.ru_stime);
        memory = std::max(memory, used.ru_maxrss);
        if (ended == child) {
            took = std::chrono::steady_clock::now() - began;
            if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
                return 1;
            }
        }
    }
    std::FILE* report = std::fopen(arguments[1], "w");
    if (report == nullptr) {
        return 1;
    }
    std::fprintf(report, "%f %f %ld\n", took.count(), processor, memory);
    return std::fclose(report) == 0 ? 0 : 1;
}
