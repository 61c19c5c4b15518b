#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

class PulseContext;

// One sound device as the sound server names it: `name` is the stable id
// kept in the settings, `description` what a person reads.
struct SoundDevice {
    std::string name;
    std::string description;

    bool operator==(const SoundDevice&) const = default;
};

// The sound server's outputs (sinks) and inputs (sources, without the sinks'
// monitors), with its defaults.
struct SoundDevices {
    std::vector<SoundDevice> outputs;
    std::vector<SoundDevice> inputs;
    std::string defaultOutput;
    std::string defaultInput;

    bool operator==(const SoundDevices&) const = default;
};

// Follows the sound server's devices on a PulseAudio context of its own, and hands each new list to
// `changed` on that loop's thread; nothing here waits on the server. A server that goes away is
// asked again a little later, and an empty list is handed over meanwhile.
class PulseDeviceList {
public:
    using Changed = std::function<void(const SoundDevices&)>;

    PulseDeviceList(std::string server, std::string applicationName, Changed changed);
    ~PulseDeviceList();
    PulseDeviceList(const PulseDeviceList&) = delete;
    PulseDeviceList& operator=(const PulseDeviceList&) = delete;

private:
    // Both run on the loop's thread, with its lock held.
    void ask();
    void finishOne();

    Changed m_changed;
    std::unique_ptr<PulseContext> m_context;
    int m_listening = 0;
    // The answers of one round of questions, handed over when all three came.
    SoundDevices m_pending;
    int m_outstanding = 0;
    bool m_askAgain = false;
};
