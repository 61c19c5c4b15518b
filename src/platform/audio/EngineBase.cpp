#include "audio/EngineBase.h"

#include <algorithm>
#include <cstdio>

std::string AudioFormat::description() const {
    char text[96];
    std::snprintf(text, sizeof text, "%g Hz, %d ch, float32", sampleRate, channels);
    return text;
}

std::optional<AudioError> EngineBase::setVoiceProcessingEnabled(bool enabled) {
    if (!enabled) {
        m_voice.reset();
        return std::nullopt;
    }
    if (auto obstacle = voiceProcessingObstacle()) {
        return obstacle;
    }
    AudioError why;
    // The reference is what the source plays; calls play at the wire's rate.
    double renderRate = m_sourceFormat.valid() ? m_sourceFormat.sampleRate : 8000.0;
    m_voice = VoiceProcessor::make(m_settings, renderRate, &why);
    if (!m_voice) {
        return why;
    }
    return std::nullopt;
}

AudioFormat EngineBase::inputFormat() {
    AudioFormat hardware = hardwareFormat();
    if (m_voice && hardware.valid()) {
        return m_voice->outputFormat();
    }
    return hardware;
}

void EngineBase::installTap(std::uint32_t bufferFrames, CaptureBlock block) {
    {
        std::lock_guard guard(m_tapMutex);
        m_tap = std::move(block);
        m_tapFrames = bufferFrames;
    }
    tapReplaced();
}

void EngineBase::removeTap() {
    std::lock_guard guard(m_tapMutex);
    m_tap = nullptr;
}

void EngineBase::attachSource(const AudioFormat& format, RenderBlock block) {
    m_sourceFormat = format;
    m_render = std::move(block);
}

void EngineBase::detachSource() {
    m_render = nullptr;
}

int EngineBase::addChangeObserver(ChangeHandler handler) {
    std::lock_guard guard(m_observersMutex);
    int token = m_nextToken++;
    m_observers.emplace(token, std::move(handler));
    return token;
}

void EngineBase::removeChangeObserver(int token) {
    std::lock_guard guard(m_observersMutex);
    m_observers.erase(token);
}

void EngineBase::deliverCapture(const float* samples, std::uint32_t frames,
                                const AudioFormat& format) {
    std::lock_guard guard(m_tapMutex);
    if (!m_tap) {
        return;
    }
    if (!m_voice) {
        m_tap(samples, frames, format);
        return;
    }
    m_processed.clear();
    if (m_voice->capture(samples, frames, format, m_processed)) {
        return; // a chunk the processor refused is lost, as a device glitch would be
    }
    if (!m_processed.empty()) {
        m_tap(m_processed.data(), std::uint32_t(m_processed.size()), m_voice->outputFormat());
    }
}

void EngineBase::renderInto(float* out, std::uint32_t frames) {
    if (m_render) {
        m_render(out, frames);
    } else {
        std::fill(out, out + frames, 0.0f);
    }
    if (m_voice) {
        m_voice->render(out, frames);
    }
}

void EngineBase::notifyChange() {
    std::vector<ChangeHandler> handlers;
    {
        std::lock_guard guard(m_observersMutex);
        for (auto& [token, handler] : m_observers) {
            handlers.push_back(handler);
        }
    }
    for (auto& handler : handlers) {
        handler();
    }
}
