// Moves the pointer of a wlroots compositor (Sway) and clicks, through a virtual pointer: its
// headless back end has no input devices of its own.
//
//   virtual_pointer <layout width> <layout height>
//
// then one line on standard input per move, "<x> <y>", or left click, "<x> <y> left"; each is
// answered with "done" once the compositor has it.
#include "wlr-virtual-pointer-unstable-v1-client-protocol.h"

#include <linux/input-event-codes.h>
#include <wayland-client.h>

// wayland-scanner writes the protocol's tables in C; the header declares them with C linkage.
extern "C" {
#include "wlr-virtual-pointer-unstable-v1-protocol.c"
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <unistd.h>

namespace {

zwlr_virtual_pointer_manager_v1* manager = nullptr;

void announced(void*, wl_registry* registry, uint32_t name, const char* interface, uint32_t) {
    if (std::strcmp(interface, zwlr_virtual_pointer_manager_v1_interface.name) == 0) {
        manager = static_cast<zwlr_virtual_pointer_manager_v1*>(
            wl_registry_bind(registry, name, &zwlr_virtual_pointer_manager_v1_interface, 1));
    }
}

void withdrawn(void*, wl_registry*, uint32_t) {}

uint32_t milliseconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint32_t>(now.tv_sec * 1000 + now.tv_nsec / 1000000);
}

} // namespace

int main(int argc, char** argv) {
    // Without a display or the protocol, the test's clicks find no panel and it says so.
    wl_display* display = wl_display_connect(nullptr);
    if (argc != 3 || display == nullptr) {
        return 1;
    }
    const wl_registry_listener listener{announced, withdrawn};
    wl_registry_add_listener(wl_display_get_registry(display), &listener, nullptr);
    wl_display_roundtrip(display);
    if (manager == nullptr) {
        return 1;
    }
    // One device for the whole run: each new one announces the seat's pointer anew, and clients
    // that have not yet taken the new pointer miss the motion and the click sent right after.
    zwlr_virtual_pointer_v1* pointer =
        zwlr_virtual_pointer_manager_v1_create_virtual_pointer(manager, nullptr);
    const auto width = static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10));
    const auto height = static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10));
    unsigned x = 0;
    unsigned y = 0;
    char button[16] = "";
    char line[64];
    while (std::fgets(line, sizeof line, stdin) != nullptr) {
        button[0] = '\0';
        if (std::sscanf(line, "%u %u %15s", &x, &y, button) < 2) {
            continue;
        }
        zwlr_virtual_pointer_v1_motion_absolute(pointer, milliseconds(), x, y, width, height);
        zwlr_virtual_pointer_v1_frame(pointer);
        wl_display_roundtrip(display);
        if (button[0] != '\0') {
            // The client under the pointer learns of it first, then of the button.
            usleep(50000);
            for (const auto state :
                 {WL_POINTER_BUTTON_STATE_PRESSED, WL_POINTER_BUTTON_STATE_RELEASED}) {
                zwlr_virtual_pointer_v1_button(pointer, milliseconds(), BTN_LEFT, state);
                zwlr_virtual_pointer_v1_frame(pointer);
            }
            wl_display_roundtrip(display);
        }
        std::puts("done");
        std::fflush(stdout);
    }
    zwlr_virtual_pointer_v1_destroy(pointer);
    wl_display_disconnect(display);
    return 0;
}
