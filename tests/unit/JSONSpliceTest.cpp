#include "core/JSONSplice.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

using JSONSplice::Member;

// The document an operation gives, or the description of the error it throws.
template <typename Operation> std::string outcome(Operation operation) {
    try {
        return operation();
    } catch (const JSONSplice::SpliceError& e) {
        return std::string("error: ") + e.what();
    }
}

TEST(JSONSplice, FindsTheFirstTopLevelMemberInCharacters) {
    const std::tuple<std::string, std::string, std::optional<Member>> cases[] = {
        // A scalar's value runs on over the whitespace before the comma.
        {R"({"a": 1 , "b": {"c": [1]} })", "a", Member{{6, 8}, {1, 9}}},
        {R"({"a": 1 , "b": {"c": [1]} })", "b", Member{{15, 25}, {8, 25}}},
        // Characters, not bytes: an accent on its own code point, a flag of two.
        {"{\"e\xcc\x81\": \"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", \"k\": 2}", "k",
         Member{{16, 17}, {9, 17}}},
        // The first of duplicates wins; nested keys are not members; a brace may close an array.
        {R"({"x": {"k": 0}, "k": 1, "k": 2})", "k", Member{{21, 22}, {16, 23}}},
        {R"({"a": [1}, "b": 2})", "b", Member{{16, 17}, {9, 17}}},
        // An escaped slash matches a plain one; a \u escape is not decoded.
        {R"({"a\/b": true})", "a/b", Member{{9, 13}, {1, 13}}},
        {R"({"\u0061": 1})", "a", std::nullopt},
        // CR LF and a no-break space are whitespace.
        {"{\r\n\xc2\xa0\"a\": 1\r\n}", "a", Member{{8, 10}, {1, 10}}},
    };
    for (const auto& [document, key, member] : cases)
        EXPECT_EQ(JSONSplice::find(key, document), member) << document << " / " << key;
}

TEST(JSONSplice, SetsAndRemovesKeepingEverythingElse) {
    const std::tuple<std::string, bool, std::string> cases[] = {
        // Inserting: the caller's indentation goes into an empty object, whatever its spacing.
        {"{}", true, "{\n  \"hooks\": V\n}"},
        {"{\n\t\t\n}", true, "{\n  \"hooks\": V\n}"},
        // The comma lands after the scalar's line break: the required result.
        {"{\n    \"a\": 1\n}", true, "{\n    \"a\": 1\n,\n    \"hooks\": V}"},
        {"{\n\t\"a\": []\n}\n", true, "{\n\t\"a\": [],\n\t\"hooks\": V\n}\n"},
        // A CR LF is one character and not a line feed, so no indentation is detected.
        {"{\r\n    \"a\": []\r\n}", true, "{\r\n    \"a\": [],\n  \"hooks\": V\r\n}"},
        {"{\"a\" : 1 }}", true, "{\"a\" : 1 ,\n  \"hooks\": V}}"},
        // Replacing touches only the first duplicate's value.
        {R"({ "hooks" :  {"x": 1} , "hooks": 2 })", true, R"({ "hooks" :  V , "hooks": 2 })"},
        {"{,}", true, "error: malformed JSON: could not find the end of the last member"},
        // Removing takes one separator and keeps one line break before the brace.
        {"{\n  \"hooks\": {\n    \"a\": 1\n  }\n}", false, "{\n}"},
        {R"({"a": 1, "hooks": 2})", false, R"({"a": 1})"},
        {"{\n  \"hooks\": [],\n  \"b\": 2\n}", false, "{\n  \n  \"b\": 2\n}"},
        {"{\"a\": 1 \"hooks\": 2}", false, "{\"a\": 1 \"hooks\": 2}"},
        {R"({"a": 1})", false, R"({"a": 1})"},
    };
    for (const auto& [document, setting, expected] : cases) {
        EXPECT_EQ(outcome([&] {
                      return setting ? JSONSplice::set("hooks", "V", document, "  ")
                                     : JSONSplice::remove("hooks", document);
                  }),
                  expected)
            << document;
    }
}

TEST(JSONSplice, DescribesMalformedDocuments) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "the document's top level is not a JSON object"},
        {"   ", "the document's top level is not a JSON object"},
        {"[{\"hooks\": 1}]", "the document's top level is not a JSON object"},
        {"{", "malformed JSON: unterminated object"},
        {"{\"a\": 1,", "malformed JSON: unterminated object"},
        {"{ 5", "malformed JSON: expected a key at 2"},
        {"{\"e\xcc\x81\":\"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", x}",
         "malformed JSON: expected a key at 10"},
        {"{\"ab\\", "malformed JSON: unterminated string"},
        {"{\"a\\\"b\" 1}", "malformed JSON: expected ':' after key a\"b"},
        {"{\"a\":", "malformed JSON: expected a value after key a"},
        {"{\"a\": [1, {\"b\": 2}", "malformed JSON: unterminated value"},
        {"{\"a\": \"open", "malformed JSON: unterminated value"},
    };
    for (const auto& [document, description] : cases)
        EXPECT_EQ(outcome([&] { return JSONSplice::remove("hooks", document); }),
                  "error: " + description)
            << document;
}

} // namespace
} // namespace norrow
