#include "ThreadPlacement.h"

#include <pthread.h>
#include <sched.h>

#include <cerrno>
#include <cstring>

#include "dabo/DaboException.h"
#include "dabo/util/DaboUtil.h"

namespace orlo::dabo::krin::detail {

namespace {

const char* const affinityProperty = "krin.runtime.cpuAffinity";
const char* const priorityProperty = "krin.runtime.threadPriority";

[[noreturn]] void refuseAffinity(const std::string& text) {
    throw DaboException(std::string("Property ") + affinityProperty + " has value '" + text +
                        "', which is not a list of CPUs (such as 2 or 0,2-3)");
}

/// A CPU number at `text`, advancing `at` past it.
int cpuAt(const std::string& text, std::size_t& at) {
    const std::size_t start = at;
    long value = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9' && at - start < 5) {
        value = value * 10 + (text[at] - '0');
        ++at;
    }
    if (at == start || value >= CPU_SETSIZE) {
        refuseAffinity(text);
    }
    return static_cast<int>(value);
}

std::vector<int> cpusOf(const std::string& text) {
    std::vector<int> cpus;
    std::size_t at = 0;
    while (true) {
        const int first = cpuAt(text, at);
        int last = first;
        if (at < text.size() && text[at] == '-') {
            ++at;
            last = cpuAt(text, at);
            if (last < first) {
                refuseAffinity(text);
            }
        }
        for (int cpu = first; cpu <= last; ++cpu) {
            cpus.push_back(cpu);
        }
        if (at == text.size()) {
            return cpus;
        }
        if (text[at] != ',') {
            refuseAffinity(text);
        }
        ++at;
    }
}

}  // namespace

ThreadPlacement::ThreadPlacement(const orlo::dabo::Dabo::Properties& properties) {
    const auto affinity = properties.find(affinityProperty);
    if (affinity != properties.end()) {
        affinityText = affinity->second;
        cpus = cpusOf(affinityText);
    }
    if (properties.count(priorityProperty) != 0) {
        const long value = orlo::dabo::util::getLongProperty(properties, priorityProperty, 0);
        const int lowest = sched_get_priority_min(SCHED_FIFO);
        const int highest = sched_get_priority_max(SCHED_FIFO);
        if (value < lowest || value > highest) {
            throw DaboException(std::string("Property ") + priorityProperty + " has value '" +
                                std::to_string(value) + "', which is not a real-time priority (" +
                                std::to_string(lowest) + " to " + std::to_string(highest) + ")");
        }
        priority = static_cast<int>(value);
    }
}

void ThreadPlacement::apply() const {
    if (!cpus.empty()) {
        cpu_set_t set;
        CPU_ZERO(&set);
        for (const int cpu : cpus) {
            CPU_SET(cpu, &set);
        }
        const int error = pthread_setaffinity_np(pthread_self(), sizeof set, &set);
        if (error != 0) {
            throw DaboException("The runtime's thread cannot run on CPUs " + affinityText + " (" + affinityProperty +
                                "): " + std::strerror(error));
        }
    }
    if (priority) {
        sched_param parameters{};
        parameters.sched_priority = *priority;
        const int error = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameters);
        if (error != 0) {
            throw DaboException("The runtime's thread cannot have real-time priority " + std::to_string(*priority) +
                                " (" + priorityProperty + "): " + std::strerror(error));
        }
    }
}

}  // namespace orlo::dabo::krin::detail
