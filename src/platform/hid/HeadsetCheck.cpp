// velnor-rz-headset-check FILE: exits 0 when the report descriptor in FILE
// (a hidraw node's, from sysfs) has a headset's call controls, 1 otherwise.
// udev runs it to give the person at the computer access to such nodes.
#include "hid/HeadsetReports.h"
#include "hid/HidDescriptor.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s REPORT_DESCRIPTOR_FILE\n", argv[0]);
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    if (!file) {
        return 1;
    }
    // A descriptor is at most 4 kB; read one byte more to tell a larger file.
    std::vector<std::uint8_t> bytes(4097);
    file.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(bytes.size()));
    bytes.resize(std::size_t(file.gcount()));
    if (bytes.size() > 4096) {
        return 1;
    }
    auto descriptor = hid::parse(bytes);
    return descriptor && hid::HeadsetReports::of(std::move(*descriptor)) ? 0 : 1;
}
