#include "core/SentenceSplitter.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

TEST(SentenceSplitter, CutsAtTerminatorsFollowedByWhiteSpaceButNotAfterAbbreviations) {
    const std::pair<const char*, std::vector<std::string>> cases[] = {
        {"   ", {}},
        {"No terminator here", {"No terminator here"}},
        {"Pi is 3.14 today. Version 2.0.1 is out", {"Pi is 3.14 today.", "Version 2.0.1 is out"}},
        {"Edit main.cpp now. Done", {"Edit main.cpp now.", "Done"}},
        {"Is it done?! Yes.", {"Is it done?!", "Yes."}},
        {"He said \"stop.\" Then left.", {"He said \"stop.\"", "Then left."}},
        {"(see above.) Next", {"(see above.)", "Next"}},
        {"Wait\u2026 what. Hmm... ok", {"Wait\u2026", "what.", "Hmm...", "ok"}},
        {"One.\n\tTwo.\r\nThree.", {"One.", "Two.", "Three."}},
        {"  padded .  next", {"padded .", "next"}},
        {"Use e.g. the cache. See Dr. Smith.", {"Use e.g. the cache.", "See Dr. Smith."}},
        {"Ask J. Smith or option a. Then go.", {"Ask J. Smith or option a. Then go."}},
        {"Made in the U.S.A. today", {"Made in the U.S.A. today"}},
        {"ETC. and VS. stay; APPROX. too", {"ETC. and VS. stay; APPROX. too"}},
        {"Use ver1.2. Then www.host. Next", {"Use ver1.2.", "Then www.host.", "Next"}},
        {"Tests (e.g. unit) pass", {"Tests (e.g.", "unit) pass"}}, // glued bracket: no abbreviation
        {"Approximately. Next", {"Approximately.", "Next"}},
        {"Use \u00C9. Next", {"Use \u00C9. Next"}},
        {"Item 5. Next", {"Item 5.", "Next"}},
    };
    for (const auto& [text, sentences] : cases)
        EXPECT_EQ(SentenceSplitter::sentences(text), sentences) << text;
}

} // namespace
} // namespace norrow
