// Asks the Wayland compositor for an xdg-activation token, as a program that
// hands focus to another one does, and prints it. The app id to activate may
// be given as the argument. Exits non-zero when the compositor offers no
// xdg-activation or the connection fails.

#include "xdg-activation-v1-client-protocol.h"

#include <wayland-client.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

struct State {
    xdg_activation_v1* activation = nullptr;
    std::string token;
    bool done = false;
};

void announced(void* data, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    auto* state = static_cast<State*>(data);
    if (std::strcmp(interface, xdg_activation_v1_interface.name) == 0) {
        state->activation = static_cast<xdg_activation_v1*>(
            wl_registry_bind(registry, name, &xdg_activation_v1_interface, 1));
    }
}

void withdrawn(void*, wl_registry*, uint32_t) {}

const wl_registry_listener registryListener{announced, withdrawn};

void tokenDone(void* data, xdg_activation_token_v1*, const char* token) {
    auto* state = static_cast<State*>(data);
    state->token = token;
    state->done = true;
}

const xdg_activation_token_v1_listener tokenListener{tokenDone};

} // namespace

int main(int argc, char** argv) {
    wl_display* display = wl_display_connect(nullptr);
    if (!display) {
        std::fprintf(stderr, "cannot connect to the Wayland display\n");
        return 1;
    }
    State state;
    wl_registry* registry = wl_display_get_registry(display);
    wl_registry_add_listener(registry, &registryListener, &state);
    wl_display_roundtrip(display);
    if (!state.activation) {
        std::fprintf(stderr, "the compositor offers no xdg_activation_v1\n");
        wl_display_disconnect(display);
        return 2;
    }
    xdg_activation_token_v1* token = xdg_activation_v1_get_activation_token(state.activation);
    xdg_activation_token_v1_add_listener(token, &tokenListener, &state);
    if (argc > 1) {
        xdg_activation_token_v1_set_app_id(token, argv[1]);
    }
    xdg_activation_token_v1_commit(token);
    while (!state.done && wl_display_dispatch(display) != -1) {
    }
    xdg_activation_token_v1_destroy(token);
    xdg_activation_v1_destroy(state.activation);
    wl_registry_destroy(registry);
    wl_display_disconnect(display);
    if (!state.done) {
        std::fprintf(stderr, "the compositor closed the connection\n");
        return 1;
    }
    std::printf("%s\n", state.token.c_str());
    return 0;
}
