#pragma once

// What every benchmark measures with: the median of a few runs, in wall time and in the process's
// CPU time (the machine is shared, so wall time alone says little).
#include <QElapsedTimer>

#include <algorithm>
#include <ctime>
#include <functional>
#include <vector>

namespace BenchTiming {

struct Timing
{
    double wallMs;
    double cpuMs;
};

inline double cpuMs()
{
    timespec ts;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec * 1e3 + ts.tv_nsec / 1e6;
}

inline Timing median(int runs, const std::function<void()> &work)
{
    std::vector<double> wall, cpu;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer t;
        const double c0 = cpuMs();
        t.start();
        work();
        wall.push_back(t.nsecsElapsed() / 1e6);
        cpu.push_back(cpuMs() - c0);
    }
    std::sort(wall.begin(), wall.end());
    std::sort(cpu.begin(), cpu.end());
    return { wall[wall.size() / 2], cpu[cpu.size() / 2] };
}

} // namespace BenchTiming
