#include "core/JSONSplice.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

using JSONSplice::Member;

TEST(JSONSplice, FindsTheFirstTopLevelMemberInCharacters) {
    const std::tuple<std::string, std::string, std::optional<Member>> cases[] = {
        // A scalar's value runs on over the whitespace before the comma.
        {R"({"a": 1 , "b": {"c": [1]} })", "a", Member{{6, 8}, {1, 9}}},
        {R"({"a": 1 , "b": {"c": [1]} })", "b", Member{{15, 25}, {8, 25}}},
        // An accent on its own code point and a flag of two are one character each.
        {"{\"e\xcc\x81\": \"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", \"k\": 2}", "k",
         Member{{16, 17}, {9, 17}}},
        {R"({"x": {"k": 0}, "k": 1, "k": 2})", "k", Member{{21, 22}, {16, 23}}},
        {R"({"a": [1}, "b": 2})", "b", Member{{16, 17}, {9, 17}}},
        {R"({"a\/b": true})", "a/b", Member{{9, 13}, {1, 13}}},
        {R"({"\u0061": 1})", "a", std::nullopt},
        {"{\r\n\xc2\xa0\"a\": 1\r\n}", "a", Member{{8, 10}, {1, 10}}},
    };
    for (const auto& [document, key, member] : cases)
        EXPECT_EQ(JSONSplice::find(key, document), member) << document << " / " << key;
}

TEST(JSONSplice, EditsOnlyTheMemberOrDescribesTheDocumentsFault) {
    enum Edit { set, remove };
    const std::string malformed = "error: malformed JSON: ";
    const std::string notObject = "error: the document's top level is not a JSON object";
    const std::tuple<std::string, Edit, std::string> cases[] = {
        {"{}", set, "{\n  \"hooks\": V\n}"},
        {"{\n\t\t\n}", set, "{\n  \"hooks\": V\n}"},
        // The comma lands after the scalar's line break.
        {"{\n    \"a\": 1\n}", set, "{\n    \"a\": 1\n,\n    \"hooks\": V}"},
        {"{\n\t\"a\": []\n}\n", set, "{\n\t\"a\": [],\n\t\"hooks\": V\n}\n"},
        // CR LF is one character and not a line feed, so no indentation is detected.
        {"{\r\n    \"a\": []\r\n}", set, "{\r\n    \"a\": [],\n  \"hooks\": V\r\n}"},
        {"{\"a\" : 1 }}", set, "{\"a\" : 1 ,\n  \"hooks\": V}}"},
        {R"({ "hooks" :  {"x": 1} , "hooks": 2 })", set, R"({ "hooks" :  V , "hooks": 2 })"},
        {"{,}", set, malformed + "could not find the end of the last member"},
        {"{\n  \"hooks\": {\n    \"a\": 1\n  }\n}", remove, "{\n}"},
        {R"({"a": 1, "hooks": 2})", remove, R"({"a": 1})"},
        {"{\n  \"hooks\": [],\n  \"b\": 2\n}", remove, "{\n  \n  \"b\": 2\n}"},
        {"{\"a\": 1 \"hooks\": 2}", remove, "{\"a\": 1 \"hooks\": 2}"},
        {R"({"a": 1})", remove, R"({"a": 1})"},
        {"", remove, notObject},
        {"[{\"hooks\": 1}]", remove, notObject},
        {"{\"a\": 1,", remove, malformed + "unterminated object"},
        {"{ 5", remove, malformed + "expected a key at 2"},
        {"{\"e\xcc\x81\":\"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", x}", remove,
         malformed + "expected a key at 10"},
        {"{\"ab\\", remove, malformed + "unterminated string"},
        {"{\"a\\\"b\" 1}", remove, malformed + "expected ':' after key a\"b"},
        {"{\"a\":", remove, malformed + "expected a value after key a"},
        {"{\"a\": [1, {\"b\": 2}", remove, malformed + "unterminated value"},
        // No parser reads past a NUL, so none may hide the rest of a document.
        {std::string("{\"a\": 1}\0{\"hooks\": 2}", 21), remove, malformed + "NUL character at 8"},
        {std::string("{\"\xc3\xa9\": \"\0\"}", 11), set, malformed + "NUL character at 7"},
    };
    for (const auto& [document, edit, expected] : cases) {
        std::string result;
        try {
            result = edit == set ? JSONSplice::set("hooks", "V", document, "  ")
                                 : JSONSplice::remove("hooks", document);
        } catch (const JSONSplice::SpliceError& e) {
            result = std::string("error: ") + e.what();
        }
        EXPECT_EQ(result, expected) << document;
    }
}

} // namespace
} // namespace norrow
