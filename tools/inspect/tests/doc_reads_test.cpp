// The header's word against the library's deeds: every tag a getter looks up
// on the samples is named in the comment above that method in
// include/MetaUtils.h, so the documentation and the behaviour cannot drift
// apart. METAUTILS_DOC_HEADER=<file> checks another copy of the header.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Report.h"

namespace inspect {
namespace {

std::string trimmed(const std::string& line) {
    const size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos) return "";
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

// Method name -> the comment blocks right above its declarations inside the
// class MetaUtils (overloads' blocks joined). A block is the comment lines
// (//, ///, /* */, /** */) with no other line between them and the
// declaration; template lines between are allowed. Section banners
// ("// ---- Scalar getters ----") document no method.
std::map<std::string, std::string> methodComments(std::istream& header) {
    static const std::regex declaration(R"(^[A-Za-z_][\w:<>,\s\*&]*?\b([A-Za-z_]\w*)\s*\()");
    std::map<std::string, std::string> comments;
    std::string line;
    std::string block;
    bool inClass = false;
    bool inBlockComment = false;
    while (std::getline(header, line)) {
        const std::string t = trimmed(line);
        if (!inClass) {
            inClass = t.rfind("class METAUTILS_EXPORT MetaUtils", 0) == 0;
            continue;
        }
        if (line.rfind("};", 0) == 0) break;
        if (inBlockComment || t.rfind("/*", 0) == 0) {
            inBlockComment = t.find("*/") == std::string::npos;
            block += t + "\n";
            continue;
        }
        if (t.rfind("//", 0) == 0) {
            if (t.rfind("// ----", 0) != 0) block += t + "\n";
            continue;
        }
        if (t.rfind("template", 0) == 0) continue;
        std::smatch m;
        if (std::regex_search(t, m, declaration) && !block.empty()) comments[m[1]] += block;
        block.clear();
    }
    return comments;
}

std::string lowered(std::string s) {
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}

// A tag is named by its full name or its id ("0xE0002", any case).
bool names(const std::string& comment, const kvhost::LookupRecord& read) {
    char id[16];
    std::snprintf(id, sizeof(id), "0x%x", read.id);
    return (!read.tag.empty() && comment.find(read.tag) != std::string::npos) ||
           (read.known && lowered(comment).find(id) != std::string::npos);
}

TEST(DocReads, ParserTakesTheCommentRightAboveEachDeclaration) {
    std::istringstream header(
        "// before the class\nint Outside();\n"
        "class METAUTILS_EXPORT MetaUtils {\npublic:\n"
        "    // ---- Scalar getters ----\n    int Bare(int);\n"
        "    // Reads android.a.b.\n    int A(int);\n"
        "\n    // Detached.\n\n    int B(int);\n"
        "    /** Reads x.y\n     *  and z. */\n    template <typename T>\n    int C(T);\n"
        "    /// First overload, x.one.\n    int D(int);\n    /// x.two.\n    int D(long);\n"
        "};\n    // after\n    int E();\n");
    const std::map<std::string, std::string> expected = {
        {"A", "// Reads android.a.b.\n"},
        {"C", "/** Reads x.y\n*  and z. */\n"},
        {"D", "/// First overload, x.one.\n/// x.two.\n"},
    };
    EXPECT_EQ(methodComments(header), expected);
}

TEST(DocReads, EveryTagAGetterReadsOnTheSamplesIsNamedInItsComment) {
    // METAUTILS_DOC_HEADER checks another copy of the header (another branch's).
    const char* given = std::getenv("METAUTILS_DOC_HEADER");
    const std::string path = given != nullptr ? given : SOURCE_DIR "/include/MetaUtils.h";
    std::ifstream header(path);
    ASSERT_TRUE(header) << path;
    const std::map<std::string, std::string> comments = methodComments(header);
    std::vector<std::string> samples = {SOURCE_DIR "/samples/dumpsys-camera.txt"};
    for (const auto& file : std::filesystem::directory_iterator(SOURCE_DIR "/samples")) {
        if (file.path().extension() == ".json") samples.push_back(file.path().string());
    }
    std::set<std::string> missing;
    for (const std::string& sample : samples) {
        const kvhost::LoadResult loaded = kvhost::loadCapture(sample);
        ASSERT_TRUE(loaded) << loaded.error;
        for (const CallRecord& call : runGetters(*loaded.capture)) {
            const std::string m = call.getter->method;
            const auto comment = comments.find(m.substr(0, m.find('(')));
            for (const kvhost::LookupRecord& read : call.reads) {
                if (comment == comments.end() || !names(comment->second, read)) {
                    missing.insert(m + ": " +
                                   (read.tag.empty() ? std::to_string(read.id) : read.tag));
                }
            }
        }
    }
    std::string list;
    for (const std::string& m : missing) list += "\n  " + m;
    EXPECT_TRUE(missing.empty()) << "tags read but not named in the method's comment:" << list;
}

}  // namespace
}  // namespace inspect
