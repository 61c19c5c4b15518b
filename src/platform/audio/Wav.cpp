#include "audio/Wav.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>

namespace {

std::uint32_t le32(const unsigned char* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}
std::uint16_t le16(const unsigned char* p) {
    return std::uint16_t(p[0] | p[1] << 8);
}
void put32(std::string& out, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) {
        out.push_back(char((v >> (8 * i)) & 0xff));
    }
}
void put16(std::string& out, std::uint16_t v) {
    out.push_back(char(v & 0xff));
    out.push_back(char(v >> 8));
}

// The length field of a data chunk whose writer did not know its length.
constexpr std::uint32_t unknownLength = 0xffffffff;

} // namespace

std::optional<WavData> readWav(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return std::nullopt;
    }
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)),
                                           std::istreambuf_iterator<char>());
    return parseWav(bytes);
}

std::optional<WavData> parseWav(std::span<const unsigned char> bytes) {
    if (bytes.size() < 12 || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
        std::memcmp(bytes.data() + 8, "WAVE", 4) != 0) {
        return std::nullopt;
    }
    int formatTag = 0, channels = 0, bits = 0;
    std::uint32_t rate = 0;
    std::size_t pos = 12;
    while (pos + 8 <= bytes.size()) {
        const unsigned char* chunk = bytes.data() + pos;
        const std::uint32_t size = le32(chunk + 4);
        const std::size_t body = pos + 8;
        const std::size_t left = bytes.size() - body;
        const bool isData = std::memcmp(chunk, "data", 4) == 0;
        // A writer that could not go back to fill in the length of its
        // samples marks it as unknown; any other chunk must fit the file.
        if (size > left && !(isData && size == unknownLength)) {
            return std::nullopt;
        }
        const std::size_t end = body + std::min<std::size_t>(size, left);
        if (std::memcmp(chunk, "fmt ", 4) == 0 && size >= 16) {
            formatTag = le16(bytes.data() + body);
            channels = le16(bytes.data() + body + 2);
            rate = le32(bytes.data() + body + 4);
            bits = le16(bytes.data() + body + 14);
            if (formatTag == 0xfffe && size >= 26) { // extensible: the sub-format decides
                formatTag = le16(bytes.data() + body + 24);
            }
        } else if (isData) {
            if (channels <= 0 || rate == 0) {
                return std::nullopt;
            }
            WavData data;
            data.format = AudioFormat{double(rate), channels};
            if (formatTag == 1 && bits == 16) {
                data.samples.reserve((end - body) / 2);
                for (std::size_t p = body; p + 2 <= end; p += 2) {
                    data.samples.push_back(float(std::int16_t(le16(bytes.data() + p))) / 32768.0f);
                }
            } else if (formatTag == 3 && bits == 32) {
                data.samples.reserve((end - body) / 4);
                for (std::size_t p = body; p + 4 <= end; p += 4) {
                    std::uint32_t v = le32(bytes.data() + p);
                    float f;
                    std::memcpy(&f, &v, 4);
                    data.samples.push_back(f);
                }
            } else {
                return std::nullopt;
            }
            return data;
        }
        pos = end + (size & 1);
    }
    return std::nullopt;
}

bool writeWav(const std::string& path, const WavData& data) {
    const std::uint16_t channels = std::uint16_t(data.format.channels);
    const std::uint32_t rate = std::uint32_t(std::lround(data.format.sampleRate));
    const std::uint32_t dataBytes = std::uint32_t(data.samples.size() * 2);
    std::string out;
    out.reserve(44 + dataBytes);
    out += "RIFF";
    put32(out, 36 + dataBytes);
    out += "WAVEfmt ";
    put32(out, 16);
    put16(out, 1);
    put16(out, channels);
    put32(out, rate);
    put32(out, rate * channels * 2);
    put16(out, std::uint16_t(channels * 2));
    put16(out, 16);
    out += "data";
    put32(out, dataBytes);
    for (float s : data.samples) {
        float v = std::clamp(std::nearbyint(s * 32768.0f), -32768.0f, 32767.0f);
        put16(out, std::uint16_t(std::int16_t(v)));
    }
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(out.data(), std::streamsize(out.size()));
    return bool(file);
}
