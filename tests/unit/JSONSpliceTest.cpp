#include "core/JSONSplice.h"

#include <gtest/gtest.h>

namespace norrow {
namespace {

using JSONSplice::Member;
using JSONSplice::Path;

TEST(JSONSplice, FindsTheFirstMemberOnThePathInCharacters) {
    const std::string nested = R"({"a": 1, "h": {"S": [{"x": 1} , 2 ]}})";
    const std::tuple<std::string, Path, std::optional<Member>> cases[] = {
        // A scalar's value runs on over the whitespace before the comma.
        {R"({"a": 1 , "b": {"c": [1]} })", {"a"}, Member{{6, 8}, {1, 9}}},
        {R"({"a": 1 , "b": {"c": [1]} })", {"b"}, Member{{15, 25}, {8, 25}}},
        // An accent on its own code point and a flag of two are one character each.
        {"{\"e\xcc\x81\": \"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", \"k\": 2}",
         {"k"},
         Member{{16, 17}, {9, 17}}},
        {R"({"x": {"k": 0}, "k": 1, "k": 2})", {"k"}, Member{{21, 22}, {16, 23}}},
        {R"({"a": [1}, "b": 2})", {"b"}, Member{{16, 17}, {9, 17}}},
        {R"({"a\/b": true})", {"a/b"}, Member{{9, 13}, {1, 13}}},
        {R"({"\u0061": 1})", {"a"}, std::nullopt},
        {"{\r\n\xc2\xa0\"a\": 1\r\n}", {"a"}, Member{{8, 10}, {1, 10}}},
        {nested, {"h", "S"}, Member{{20, 35}, {15, 35}}},
        {nested, {"h", "S", std::size_t(0)}, Member{{21, 29}, {21, 31}}},
        {nested, {"h", "S", std::size_t(1)}, Member{{32, 34}, {30, 34}}},
        {nested, {"h", "S", std::size_t(2)}, std::nullopt},
        {nested, {"h", std::size_t(0)}, std::nullopt},
        {nested, {"a", "S"}, std::nullopt},
        {nested, {}, std::nullopt},
    };
    for (const auto& [document, path, member] : cases)
        EXPECT_EQ(JSONSplice::find(path, document), member) << document << " / " << path.size();
}

TEST(JSONSplice, EditsOnlyTheMemberOrDescribesTheDocumentsFault) {
    enum Edit { set, remove };
    const std::string malformed = "error: malformed JSON: ";
    const std::string notObject = "error: the document's top level is not a JSON object";
    const std::string nested = "{\n  \"h\": {\n    \"S\": [\n      {}\n    ]\n  }\n}";
    const Path hooks{"hooks"};
    const std::tuple<std::string, Path, Edit, std::string> cases[] = {
        {"{}", hooks, set, "{\n  \"hooks\": V\n}"},
        {"{\n\t\t\n}", hooks, set, "{\n  \"hooks\": V\n}"},
        // The comma lands after the scalar's line break.
        {"{\n    \"a\": 1\n}", hooks, set, "{\n    \"a\": 1\n,\n    \"hooks\": V}"},
        {"{\n\t\"a\": []\n}\n", hooks, set, "{\n\t\"a\": [],\n\t\"hooks\": V\n}\n"},
        // CR LF is one character and not a line feed, so no indentation is detected.
        {"{\r\n    \"a\": []\r\n}", hooks, set, "{\r\n    \"a\": [],\n  \"hooks\": V\r\n}"},
        {"{\r\n  \"h\": {\r\n    \"a\": []\r\n  }\r\n}",
         {"h", "b"},
         set,
         "{\r\n  \"h\": {\r\n    \"a\": [],\n    \"b\": V\r\n  }\r\n}"},
        {"{\"a\" : 1 }}", hooks, set, "{\"a\" : 1 ,\n  \"hooks\": V}}"},
        {R"({ "hooks" :  {"x": 1} , "hooks": 2 })", hooks, set, R"({ "hooks" :  V , "hooks": 2 })"},
        {"{,}", hooks, set, malformed + "could not find the end of the last member"},
        // Nested members and elements take their container's indentation, or its line's.
        {nested,
         {"h", "T"},
         set,
         "{\n  \"h\": {\n    \"S\": [\n      {}\n    ],\n    \"T\": V\n  }\n}"},
        {nested,
         {"h", "S", std::size_t(1)},
         set,
         "{\n  \"h\": {\n    \"S\": [\n      {},\n      V\n    ]\n  }\n}"},
        {nested,
         {"h", "S", std::size_t(0)},
         set,
         "{\n  \"h\": {\n    \"S\": [\n      V\n    ]\n  }\n}"},
        {"{\n  \"h\": {}\n}", {"h", "S"}, set, "{\n  \"h\": {\n    \"S\": V\n  }\n}"},
        {"{\"h\": [1, 2]}", {"h", std::size_t(5)}, set, "{\"h\": [1, 2,\n  V]}"},
        {nested,
         {"h", "S", "k"},
         set,
         "error: the path does not lead to an object or array to hold the member"},
        {nested, {"h", "S", std::size_t(0)}, remove, "{\n  \"h\": {\n    \"S\": [ ]\n  }\n}"},
        {"{\"h\": [1, [2], 3]}", {"h", std::size_t(1)}, remove, "{\"h\": [1,  3]}"},
        {"{\"h\": [1, [2]]}", {"h", std::size_t(1)}, remove, "{\"h\": [1]}"},
        {"{\n  \"hooks\": {\n    \"a\": 1\n  }\n}", hooks, remove, "{\n}"},
        {R"({"a": 1, "hooks": 2})", hooks, remove, R"({"a": 1})"},
        {"{\n  \"hooks\": [],\n  \"b\": 2\n}", hooks, remove, "{\n  \n  \"b\": 2\n}"},
        {"{\"a\": 1 \"hooks\": 2}", hooks, remove, "{\"a\": 1 \"hooks\": 2}"},
        {R"({"a": 1})", hooks, remove, R"({"a": 1})"},
        {"", hooks, remove, notObject},
        {"[{\"hooks\": 1}]", hooks, remove, notObject},
        {"{\"a\": 1,", hooks, remove, malformed + "unterminated object"},
        {"{\"h\": [1, }}", {"h", std::size_t(1)}, remove, malformed + "expected a value at 10"},
        {"{ 5", hooks, remove, malformed + "expected a key at 2"},
        {"{\"e\xcc\x81\":\"\xf0\x9f\x87\xab\xf0\x9f\x87\xb7\", x}", hooks, remove,
         malformed + "expected a key at 10"},
        {"{\"ab\\", hooks, remove, malformed + "unterminated string"},
        {"{\"a\\\"b\" 1}", hooks, remove, malformed + "expected ':' after key a\"b"},
        {"{\"a\":", hooks, remove, malformed + "expected a value after key a"},
        {"{\"a\": [1, {\"b\": 2}", hooks, remove, malformed + "unterminated value"},
        // No parser reads past a NUL, so none may hide the rest of a document.
        {std::string("{\"a\": 1}\0{\"hooks\": 2}", 21), hooks, remove,
         malformed + "NUL character at 8"},
        {std::string("{\"\xc3\xa9\": \"\0\"}", 11), hooks, set, malformed + "NUL character at 7"},
    };
    for (const auto& [document, path, edit, expected] : cases) {
        std::string result;
        try {
            result = edit == set ? JSONSplice::set(path, "V", document, "  ")
                                 : JSONSplice::remove(path, document);
        } catch (const JSONSplice::SpliceError& e) {
            result = std::string("error: ") + e.what();
        }
        EXPECT_EQ(result, expected) << document;
    }
}

} // namespace
} // namespace norrow
