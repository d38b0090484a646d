// Feeds arbitrary bytes through the whole intake path: parsing, dispatch and decoding, plus
// the re-encoding of whatever event comes out.
#include "core/HookEvent.h"
#include "core/RequestProtocol.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    // As the listener sees the bytes: still arriving, then with the sender finished.
    for (const bool peerFinished : {false, true}) {
        const auto decision = norrow::RequestProtocol::answer(bytes, "token", peerFinished);
        if (!decision) continue;
        (void)decision->reply.bytes();
        if (decision->event) {
            const auto again = norrow::HookEvent::fromJson(
                nlohmann::json::parse(decision->event->encode().dump()));
            if (!again || !(*again == *decision->event)) __builtin_trap();
        }
    }
    // Bodies alone, so the decoder is reached without the token.
    if (const auto event = norrow::HookEvent::decode(bytes)) {
        (void)event->projectName();
        (void)event->isIntegratedTerminal();
        (void)event->agentLabel();
    }
    return 0;
}
