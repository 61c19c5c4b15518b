#pragma once

#include "FakeCall.h"
#include "Waits.h"
#include "audio/Wav.h"
#include "telephony/CallAudio.h"

#include <QTemporaryDir>

#include <cmath>
#include <future>
#include <numbers>
#include <stdexcept>

// Starts audio and waits for its completion; throws when it does not come in time.
inline std::optional<CallAudio::Error> startAndWait(CallAudio& audio,
                                                    std::shared_ptr<core::Call> call) {
    auto done = std::make_shared<std::promise<std::optional<CallAudio::Error>>>();
    auto result = done->get_future();
    audio.start(std::move(call), [done](std::optional<CallAudio::Error> error) {
        done->set_value(std::move(error));
    });
    if (result.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
        throw std::runtime_error("start did not complete");
    }
    return result.get();
}

// A tone in a WAV file at the given format.
inline std::string toneWav(const QTemporaryDir& dir, const std::string& name, AudioFormat format,
                           double seconds, double hz = 440.0, float level = 0.3f) {
    WavData data{format, {}};
    const auto frames = std::size_t(seconds * format.sampleRate);
    for (std::size_t i = 0; i < frames; ++i) {
        float v =
            level * float(std::sin(2.0 * std::numbers::pi * hz * double(i) / format.sampleRate));
        for (int c = 0; c < format.channels; ++c) {
            data.samples.push_back(v);
        }
    }
    const std::string path = dir.filePath(QString::fromStdString(name)).toStdString();
    if (!writeWav(path, data)) {
        throw std::runtime_error("cannot write " + path);
    }
    return path;
}

inline bool allZero(const std::vector<std::int16_t>& frame) {
    for (std::int16_t s : frame) {
        if (s != 0) {
            return false;
        }
    }
    return true;
}
