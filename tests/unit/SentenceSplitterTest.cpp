#include "core/SentenceSplitter.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

TEST(SentenceSplitter, CutsAtTerminatorsFollowedByWhiteSpace) {
    struct Case {
        const char* text;
        std::vector<std::string> sentences;
    };
    const Case cases[] = {
        {"", {}},
        {"   ", {}},
        {"No terminator here", {"No terminator here"}},
        {"Fixed it. Tests pass!", {"Fixed it.", "Tests pass!"}},
        {"Pi is 3.14 today.", {"Pi is 3.14 today."}},
        {"Version 2.0.1 is out", {"Version 2.0.1 is out"}},
        {"Edit main.cpp now. Done", {"Edit main.cpp now.", "Done"}},
        {"Is it done?! Yes.", {"Is it done?!", "Yes."}},
        {"He said \"stop.\" Then left.", {"He said \"stop.\"", "Then left."}},
        {"(see above.) Next", {"(see above.)", "Next"}},
        {"Wait\u2026 what", {"Wait\u2026", "what"}},
        {"Hmm... ok", {"Hmm...", "ok"}},
        {"One.\n\tTwo.\r\nThree.", {"One.", "Two.", "Three."}},
        {"  padded .  next", {"padded .", "next"}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SentenceSplitter::sentences(c.text), c.sentences) << c.text;
}

TEST(SentenceSplitter, KeepsAbbreviationsInsideTheSentence) {
    struct Case {
        const char* text;
        std::vector<std::string> sentences;
    };
    const Case cases[] = {
        {"Use e.g. the cache. Done.", {"Use e.g. the cache.", "Done."}},
        {"See Dr. Smith.", {"See Dr. Smith."}},
        {"Ask J. Smith or option a. Then go.", {"Ask J. Smith or option a. Then go."}},
        {"Made in the U.S.A. today", {"Made in the U.S.A. today"}},
        {"ETC. and VS. stay; APPROX. too", {"ETC. and VS. stay; APPROX. too"}},
        {"Use ver1.2. Then www.host. Next", {"Use ver1.2.", "Then www.host.", "Next"}},
        // A bracket glued to the word makes it no abbreviation.
        {"Tests (e.g. unit) pass", {"Tests (e.g.", "unit) pass"}},
        {"Approximately. Next", {"Approximately.", "Next"}},
        {"Use \u00C9. Next", {"Use \u00C9. Next"}},
        {"Item 5. Next", {"Item 5.", "Next"}},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SentenceSplitter::sentences(c.text), c.sentences) << c.text;
}

} // namespace
} // namespace norrow
