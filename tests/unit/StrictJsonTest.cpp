#include "core/StrictJson.h"

#include "support/Files.h"

#include <filesystem>
#include <gtest/gtest.h>

namespace norrow {
namespace {

// The JSON parsing suite: its y_ cases read, its n_ cases refused (the i_ ones may go either
// way). Among the refused is a number followed by a NUL, where the parser underneath would
// have stopped reading and accepted the number.
TEST(StrictJson, ReadsTheJsonTextsAndNothingElse) {
    const std::filesystem::path suite =
        std::filesystem::path(NORROW_CORPUS_DIR) / "json/test_parsing";
    int cases = 0;
    for (const auto& entry : std::filesystem::directory_iterator(suite)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with("i_")) continue;
        ++cases;
        EXPECT_EQ(StrictJson::parse(test::contents(entry.path())).is_discarded(),
                  name.starts_with("n_"))
            << name;
    }
    EXPECT_EQ(cases, 95 + 188);
}

} // namespace
} // namespace norrow
