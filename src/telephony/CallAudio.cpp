#include "telephony/CallAudio.h"

#include "audio/Converter.h"

#include <QCoreApplication>

#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

const QString noVoiceProcessing = QStringLiteral("no voice processing");

CallAudio::Error wrapped(const char* name, const AudioError& error) {
    return CallAudio::Error{QStringLiteral("CallAudio"), error.code,
                            QString::fromUtf8(name) + QStringLiteral(": ") +
                                QString::fromStdString(error.description)};
}

} // namespace

std::shared_ptr<CallAudio> CallAudio::make(std::shared_ptr<AudioBackend> backend) {
    return std::shared_ptr<CallAudio>(new CallAudio(std::move(backend)));
}

CallAudio::CallAudio(std::shared_ptr<AudioBackend> backend) : m_backend(std::move(backend)) {
    // Room for a few reads of the core, so the render thread does not grow it.
    m_state.speaker.reserve(4096);
    m_state.mic.reserve(4096);
}

CallAudio::~CallAudio() {
    // The tap and the source point at this object: the engine stops first.
    if (m_queue.sync([this] { teardown(); })) {
        teardown(); // the queue has shut down, so no job of it can run beside this
    }
}

std::uint32_t CallAudio::captureCapacity(std::uint32_t frames, double sampleRate) {
    const double capacity = std::trunc(double(frames) * 8000.0 / sampleRate) + 16.0;
    if (!(capacity >= 0.0 && capacity <= double(std::numeric_limits<std::uint32_t>::max()))) {
        std::abort(); // a block no device can give
    }
    return std::uint32_t(capacity);
}

void CallAudio::start(std::shared_ptr<core::Call> call, Completion completion) {
    std::weak_ptr<CallAudio> weak = weak_from_this();
    m_queue.async([weak, call = std::move(call), completion = std::move(completion)]() mutable {
        if (auto self = weak.lock()) {
            self->begin(std::move(call), completion);
        }
    });
}

bool CallAudio::switchTo(std::shared_ptr<core::Call> call) {
    bool exists = false;
    const auto failure = m_queue.sync([&] {
        exists = m_engine != nullptr;
        if (exists) {
            std::lock_guard guard(m_lock);
            m_state.call = std::move(call);
            m_state.mic.clear();
            m_state.speaker.clear();
        }
    });
    return !failure && exists;
}

void CallAudio::stop() {
    const auto failure = m_queue.sync([this] {
        teardown();
        resetState(nullptr);
    });
    (void)failure; // only the destructor shuts the queue down, and it tears down itself
}

void CallAudio::setMuted(bool muted) {
    std::lock_guard guard(m_lock);
    m_state.muted = muted;
}

bool CallAudio::muted() const {
    std::lock_guard guard(m_lock);
    return m_state.muted;
}

std::int64_t CallAudio::micFrames() const {
    std::lock_guard guard(m_lock);
    return m_state.micFrames;
}

int CallAudio::restarts() const {
    std::lock_guard guard(m_lock);
    return m_state.restarts;
}

std::optional<QString> CallAudio::lastError() const {
    std::lock_guard guard(m_lock);
    return m_state.lastError;
}

std::optional<QString> CallAudio::audioWarning() const {
    const std::optional<QString> error = lastError();
    if (!error) {
        return std::nullopt;
    }
    if (!error->startsWith(noVoiceProcessing)) {
        return QCoreApplication::translate("CallAudio", "Audio: ") + *error;
    }
    if (m_backend && m_backend->outputIsBuiltIn()) {
        return QCoreApplication::translate("CallAudio",
                                           "Echo cancellation is off. Use headphones.");
    }
    return std::nullopt; // headphones cannot feed the far end's voice back
}

void CallAudio::resetState(std::shared_ptr<core::Call> call) {
    std::lock_guard guard(m_lock);
    m_state.call = std::move(call);
    m_state.mic.clear();
    m_state.speaker.clear();
    m_state.micFrames = 0;
    m_state.restarts = 0;
    m_state.lastError.reset();
}

void CallAudio::begin(std::shared_ptr<core::Call> call, const Completion& completion) {
    teardown();
    resetState(nullptr);
    resetState(std::move(call));
    std::optional<Error> first = buildEngine(true);
    if (!first) {
        if (completion) {
            completion(std::nullopt);
        }
        return;
    }
    teardown();
    std::optional<Error> second = buildEngine(false);
    if (second) {
        if (completion) {
            completion(second);
        }
        return;
    }
    {
        std::lock_guard guard(m_lock);
        m_state.lastError = noVoiceProcessing + QStringLiteral(": ") + first->description;
    }
    if (completion) {
        completion(std::nullopt);
    }
}

std::optional<CallAudio::Error> CallAudio::buildEngine(bool voiceProcessing) {
    if (!m_backend) {
        return wrapped("engine start", AudioError{1, "no audio backend"});
    }
    std::unique_ptr<AudioEngine> engine = m_backend->makeEngine();
    if (voiceProcessing) {
        if (std::optional<AudioError> failure = engine->setVoiceProcessingEnabled(true)) {
            return wrapped("voice processing", *failure);
        }
    }
    if (std::optional<Error> failure = installCapture(*engine)) {
        return failure;
    }
    // The engine's threads stop in teardown before this object can go, so the
    // render block may point at it directly and never touch a reference count.
    engine->attachSource(playFormat,
                         [this](float* out, std::uint32_t frames) { render(out, frames); });
    std::weak_ptr<CallAudio> weak = weak_from_this();
    const int observer = engine->addChangeObserver([weak] {
        if (auto self = weak.lock()) {
            self->configurationChanged();
        }
    });
    // Stored before starting, so that a failed start leaves them for teardown.
    m_configObserver = observer;
    m_engine = std::move(engine);
    m_sourceAttached = true;
    if (std::optional<AudioError> failure = m_engine->start()) {
        return wrapped("engine start", *failure);
    }
    return std::nullopt;
}

std::optional<CallAudio::Error> CallAudio::installCapture(AudioEngine& engine) {
    const AudioFormat format = engine.inputFormat();
    std::shared_ptr<Converter> converter;
    if (format.sampleRate > 0.0 && format.channels > 0) {
        converter = Converter::make(format);
    }
    if (!converter) {
        return Error{QStringLiteral("CallAudio"), 1,
                     QStringLiteral("no converter for ") +
                         QString::fromStdString(format.description())};
    }
    engine.removeTap();
    // Each tap has a converter of its own, whose filter state runs from block to block.
    engine.installTap(tapFrames, [this, converter](const float* samples, std::uint32_t frames,
                                                   const AudioFormat& blockFormat) {
        capture(samples, frames, blockFormat, *converter);
    });
    return std::nullopt;
}

void CallAudio::capture(const float* samples, std::uint32_t frames, const AudioFormat& format,
                        Converter& converter) {
    const std::uint32_t capacity = captureCapacity(frames, format.sampleRate);
    std::vector<std::int16_t> output(capacity);
    std::optional<AudioError> failure;
    if (!(format == converter.from())) {
        failure = AudioError{2, "the converter is for " + converter.from().description()};
    } else {
        Converter::Result result = converter.convert(samples, frames, output.data(), capacity);
        failure = result.error;
        output.resize(result.frames);
    }
    if (failure) {
        std::lock_guard guard(m_lock);
        m_state.lastError = QStringLiteral("convert: ") +
                            QString::fromStdString(failure->description) + QStringLiteral(" in=") +
                            QString::fromStdString(format.description());
        return;
    }
    std::vector<std::vector<std::int16_t>> ready;
    std::shared_ptr<core::Call> call;
    {
        std::lock_guard guard(m_lock);
        call = frameUp(output, ready);
    }
    // Never under the lock: the core may take its time with a frame.
    if (call) {
        for (const auto& f : ready) {
            call->writeAudio(f);
        }
    }
}

std::shared_ptr<core::Call> CallAudio::frameUp(std::vector<std::int16_t>& samples,
                                               std::vector<std::vector<std::int16_t>>& frames) {
    // Frames keep flowing while muted, so the far end hears steady silence.
    if (m_state.muted) {
        std::fill(samples.begin(), samples.end(), std::int16_t(0));
    }
    m_state.mic.insert(m_state.mic.end(), samples.begin(), samples.end());
    std::size_t used = 0;
    while (m_state.mic.size() - used >= std::size_t(frame)) {
        frames.emplace_back(m_state.mic.begin() + std::ptrdiff_t(used),
                            m_state.mic.begin() + std::ptrdiff_t(used + frame));
        used += frame;
    }
    m_state.mic.erase(m_state.mic.begin(), m_state.mic.begin() + std::ptrdiff_t(used));
    m_state.micFrames += std::int64_t(frames.size());
    return m_state.call;
}

void CallAudio::render(float* out, std::uint32_t frames) {
    if (out == nullptr) {
        return;
    }
    std::uint32_t pulled = 0;
    {
        std::lock_guard guard(m_lock);
        pulled = pull(out, frames);
    }
    for (std::uint32_t i = pulled; i < frames; ++i) {
        out[i] = 0.0f;
    }
}

std::uint32_t CallAudio::pull(float* out, std::uint32_t count) {
    std::vector<std::int16_t>& speaker = m_state.speaker;
    while (speaker.size() < count) {
        if (!m_state.call) {
            break;
        }
        // One frame at a time into a buffer on the stack: nothing here touches the heap.
        std::array<std::int16_t, frame> received;
        m_state.call->readAudioInto(received.data(), received.size());
        speaker.insert(speaker.end(), received.begin(), received.end());
    }
    const std::uint32_t n = std::min<std::uint32_t>(count, std::uint32_t(speaker.size()));
    for (std::uint32_t i = 0; i < n; ++i) {
        out[i] = toFloat(speaker[i]);
    }
    speaker.erase(speaker.begin(), speaker.begin() + n);
    return n;
}

void CallAudio::teardown() {
    if (m_configObserver) {
        if (m_engine) {
            m_engine->removeChangeObserver(*m_configObserver);
        }
        m_configObserver.reset();
    }
    if (m_engine) {
        // Always: an engine with one failed stream says it is not running while
        // the other stream still calls into this object.
        m_engine->stop();
        m_engine->removeTap();
        if (m_sourceAttached) {
            m_engine->detachSource();
        }
        m_engine.reset();
        m_sourceAttached = false;
    }
}

void CallAudio::configurationChanged() {
    {
        std::lock_guard guard(m_lock);
        m_state.restarts += 1;
    }
    scheduleRestart(0);
}

void CallAudio::scheduleRestart(int attempt) {
    if (attempt > 9) {
        return;
    }
    std::weak_ptr<CallAudio> weak = weak_from_this();
    const auto delay = std::chrono::milliseconds(attempt == 0 ? 50 : 200);
    m_queue.asyncAfter(delay, [weak, attempt] {
        if (auto self = weak.lock()) {
            self->restart(attempt);
        }
    });
}

void CallAudio::restart(int attempt) {
    if (!m_engine) {
        return;
    }
    {
        std::lock_guard guard(m_lock);
        if (!m_state.call) {
            return; // a change after the call has ended needs no work
        }
    }
    std::optional<QString> failure;
    if (std::optional<Error> error = installCapture(*m_engine)) {
        failure = error->description;
    } else if (!m_engine->isRunning()) {
        if (std::optional<AudioError> startError = m_engine->start()) {
            failure = QString::fromStdString(startError->description);
        }
    }
    if (!failure) {
        std::lock_guard guard(m_lock);
        m_state.lastError.reset();
        return;
    }
    {
        std::lock_guard guard(m_lock);
        m_state.lastError = QStringLiteral("restart %1: ").arg(attempt + 1) + *failure;
    }
    scheduleRestart(attempt + 1);
}
