#include "EchoPath.h"

#include "audio/Converter.h"
#include "audio/Wav.h"

#include <QProcess>
#include <QTemporaryDir>

#include <cmath>
#include <ctime>
#include <random>
#include <stdexcept>

namespace {

std::vector<float> speak(const QString& voice, const QString& text, double seconds) {
    QTemporaryDir dir;
    const QString path = dir.filePath("speech.wav");
    QProcess espeak;
    espeak.start("espeak-ng", {"-v", voice, "-s", "150", "-w", path, text});
    if (!espeak.waitForFinished(20000) || espeak.exitCode() != 0) {
        throw std::runtime_error("espeak-ng failed: " +
                                 espeak.readAllStandardError().toStdString());
    }
    auto wav = readWav(path.toStdString());
    if (!wav) {
        throw std::runtime_error("espeak-ng wrote no readable WAV");
    }
    auto converter = Converter::make(wav->format);
    std::vector<std::int16_t> out(
        std::size_t(double(wav->samples.size()) * 8000.0 / wav->format.sampleRate) + 64);
    auto result = converter->convert(wav->samples.data(),
                                     std::uint32_t(wav->samples.size() / wav->format.channels),
                                     out.data(), std::uint32_t(out.size()));
    std::vector<float> speech;
    for (std::uint32_t i = 0; i < result.frames; ++i) {
        speech.push_back(float(out[i]) / 32768.0f);
    }
    // Repeated up to the length asked for.
    std::vector<float> filled;
    const auto length = std::size_t(seconds * 8000.0);
    while (filled.size() < length && !speech.empty()) {
        filled.insert(filled.end(), speech.begin(), speech.end());
    }
    filled.resize(length, 0.0f);
    // -20 dBFS over the active part.
    double energy = 0;
    std::size_t active = 0;
    for (float v : filled) {
        if (std::abs(v) > 1e-3f) {
            energy += double(v) * v;
            ++active;
        }
    }
    const double gain = 0.1 / std::sqrt(energy / double(std::max<std::size_t>(active, 1)));
    for (float& v : filled) {
        v = float(v * gain);
    }
    return filled;
}

double energy(const std::vector<float>& x, double from, double to, double rate) {
    double sum = 0;
    for (std::size_t i = std::size_t(from * rate); i < std::size_t(to * rate) && i < x.size();
         ++i) {
        sum += double(x[i]) * x[i];
    }
    return sum;
}

double ratioDb(double a, double b) {
    return 10.0 * std::log10(std::max(a, 1e-20) / std::max(b, 1e-20));
}

double threadCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

} // namespace

EchoScene makeEchoScene(int pathDelayMs) {
    const double seconds = 10.0;
    EchoScene scene;
    scene.far = speak("en-us",
                      "The quarterly figures arrived this morning, and the team in the north "
                      "office wants to talk them through before the board meets on Thursday. "
                      "Could you call them back after lunch?",
                      seconds);
    std::vector<float> talker = speak("en-gb+f3",
                                      "Yes, I have the numbers here, and I think the second "
                                      "quarter looks better than we feared.",
                                      seconds - EchoScene::doubleTalkFrom);
    scene.near.assign(std::size_t(seconds * EchoScene::rate), 0.0f);
    std::copy(talker.begin(), talker.end(),
              scene.near.begin() + std::ptrdiff_t(EchoScene::doubleTalkFrom * EchoScene::rate));

    // A room: the delay, then 300 ms of noise decaying by 60 dB, scaled so the
    // echo comes back 6 dB below what was played.
    std::mt19937 random(7);
    std::normal_distribution<double> noise;
    const auto delay = std::size_t(pathDelayMs * EchoScene::rate / 1000.0);
    const auto tail = std::size_t(0.3 * EchoScene::rate);
    std::vector<double> response(tail);
    double norm = 0;
    for (std::size_t k = 0; k < tail; ++k) {
        response[k] = noise(random) * std::pow(10.0, -3.0 * double(k) / double(tail));
        norm += response[k] * response[k];
    }
    for (double& h : response) {
        h *= 0.5 / std::sqrt(norm);
    }
    scene.echo.assign(scene.far.size(), 0.0f);
    for (std::size_t n = delay; n < scene.far.size(); ++n) {
        double sum = 0;
        const std::size_t from = n - delay;
        for (std::size_t k = 0; k < tail && k <= from; ++k) {
            sum += response[k] * scene.far[from - k];
        }
        scene.echo[n] = float(sum);
    }
    return scene;
}

EchoFigures measureEcho(const EchoScene& scene, const VoiceSettings& settings, int deviceDelayMs) {
    AudioError why;
    auto voice = VoiceProcessor::make(settings, EchoScene::rate, &why);
    if (!voice) {
        throw std::runtime_error("voice processing: " + why.description);
    }
    voice->setDeviceDelayMs(deviceDelayMs);
    const std::size_t block = std::size_t(EchoScene::rate / 50);
    std::vector<float> mic(block);
    std::vector<float> out;
    double cpu = 0;
    for (std::size_t at = 0; at + block <= scene.far.size(); at += block) {
        for (std::size_t i = 0; i < block; ++i) {
            mic[i] = scene.near[at + i] + scene.echo[at + i];
        }
        const double before = threadCpuMs();
        voice->render(scene.far.data() + at, std::uint32_t(block));
        voice->capture(mic.data(), std::uint32_t(block), {EchoScene::rate, 1}, out);
        cpu += threadCpuMs() - before;
    }
    const double rate = VoiceProcessor::rate;
    const double start = EchoScene::doubleTalkFrom;
    const double end = double(scene.far.size()) / EchoScene::rate;
    EchoFigures figures;
    // The echo alone in the microphone, against what is left of it after processing.
    figures.erleEarlyDb =
        ratioDb(energy(scene.echo, 0.15, 1.0, EchoScene::rate) * 2.0, energy(out, 0.15, 1.0, rate));
    figures.erleSecondDb =
        ratioDb(energy(scene.echo, 1.0, 2.0, EchoScene::rate) * 2.0, energy(out, 1.0, 2.0, rate));
    figures.erleSteadyDb = ratioDb(energy(scene.echo, start - 2.0, start, EchoScene::rate) * 2.0,
                                   energy(out, start - 2.0, start, rate));
    figures.nearChangeDb = ratioDb(energy(out, start, end - 0.1, rate),
                                   energy(scene.near, start, end - 0.1, EchoScene::rate) * 2.0);
    figures.cpuMsPerSecond = cpu / end;
    figures.reportedDelayMs = voice->reportedDelayMs();
    return figures;
}
