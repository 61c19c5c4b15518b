#include "PulseAudioServer.h"

// This program runs the call-audio tests against PipeWire's PulseAudio server.
namespace {

const bool onPipeWire = [] {
    PulseAudioServer::use(PulseAudioServer::Kind::pipewire);
    return true;
}();

} // namespace
