#pragma once

#include "audio/AudioBackend.h"

#include <span>
#include <string>
#include <vector>

// Plain RIFF WAV files: 16-bit integer or 32-bit float PCM in, 16-bit out.
struct WavData {
    AudioFormat format;
    std::vector<float> samples; // interleaved, -1.0 to 1.0
};

// Absent when the file cannot be read or is no PCM WAV, or when a chunk
// claims more bytes than the file holds.
std::optional<WavData> readWav(const std::string& path);
std::optional<WavData> parseWav(std::span<const unsigned char> bytes);
bool writeWav(const std::string& path, const WavData& data);
