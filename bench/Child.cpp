#include "Child.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "Run.h"
#include "Scene.h"

namespace kvbench {
namespace {

template <typename Body>
ChildCost InChild(Body body) {
    ChildCost cost;
    const pid_t pid = fork();
    if (pid < 0) return cost;
    if (pid == 0) _exit(body());
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid) return cost;
    cost.ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    cost.cpuSeconds = static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
                      static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    cost.peakKiB = usage.ru_maxrss;
    return cost;
}

}  // namespace

ChildCost RunInspect(const std::vector<std::string>& args, const std::string& out) {
    return InChild([&] {
        std::vector<const char*> argv{"metautils-inspect"};
        for (const std::string& a : args) argv.push_back(a.c_str());
        std::ofstream file(out, std::ios::binary);
        std::ostringstream err;
        const int status = inspect::run(static_cast<int>(argv.size()), argv.data(), file, err);
        file.close();
        return status == 0 && file ? 0 : 1;
    });
}

ChildCost RunCommand(const std::string& command) {
    return InChild([&] {
        execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
        return 127;
    });
}

bool ChildTimer::add(const ChildCost& cost, const char* what) {
    if (!Expect(state_, cost.ok, what)) return false;
    state_.SetIterationTime(cost.cpuSeconds);
    peakKiB_ = std::max(peakKiB_, cost.peakKiB);
    cpuSeconds_ += cost.cpuSeconds;
    ++runs_;
    return true;
}

ChildTimer::~ChildTimer() {
    if (runs_ == 0) return;
    state_.counters["peak_MB"] = static_cast<double>(peakKiB_) / 1024;
    state_.counters["child_cpu_s"] = cpuSeconds_ / runs_;
}

}  // namespace kvbench
