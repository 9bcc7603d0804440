#include "Messages.h"

#include <cctype>
#include <cstddef>
#include <map>

namespace inspect {
namespace {

constexpr size_t kPlacesShown = 3;
// A kind met fewer times is shown message by message: a few notes of one
// kind (the static metadata of each camera) each say something of their own.
constexpr size_t kGroupedFrom = 5;

// "file:line: tag: what" taken apart; either front part may be absent.
struct Parts {
    std::string place;  // "file:line"
    std::string tag;
    std::string what;
};

bool isTagChar(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) || c == '.' || c == '_';
}

Parts partsOf(const std::string& m) {
    Parts p;
    size_t rest = 0;
    // The place: the first ":<digits>: ".
    for (size_t colon = m.find(':'); colon != std::string::npos; colon = m.find(':', colon + 1)) {
        size_t end = colon + 1;
        while (end < m.size() && std::isdigit(static_cast<unsigned char>(m[end]))) ++end;
        if (end > colon + 1 && m.compare(end, 2, ": ") == 0) {
            p.place = m.substr(0, end);
            rest = end + 2;
            break;
        }
    }
    // The tag: a dotted name and ": ".
    size_t end = rest;
    while (end < m.size() && isTagChar(m[end])) ++end;
    if (end > rest && m.compare(end, 2, ": ") == 0 && m.find('.', rest) < end) {
        p.tag = m.substr(rest, end - rest);
        rest = end + 2;
    }
    p.what = m.substr(rest);
    return p;
}

// The kind of a message: its text with every number alike.
std::string kindOf(const std::string& what) {
    std::string kind;
    for (size_t i = 0; i < what.size(); ++i) {
        if (std::isdigit(static_cast<unsigned char>(what[i]))) {
            while (i + 1 < what.size() && std::isdigit(static_cast<unsigned char>(what[i + 1])))
                ++i;
            kind += '#';
        } else {
            kind += what[i];
        }
    }
    return kind;
}

}  // namespace

std::vector<MessageGroup> groupMessages(const std::vector<std::string>& messages) {
    std::vector<MessageGroup> groups;
    std::map<std::string, size_t> byKind;
    for (const std::string& m : messages) {
        const Parts p = partsOf(m);
        const auto [at, added] = byKind.emplace(kindOf(p.what), groups.size());
        if (added) groups.push_back({p.what, {}});
        groups[at->second].messages.push_back(m);
    }
    return groups;
}

std::vector<std::string> messageLines(const std::vector<std::string>& messages, bool all) {
    if (all) return messages;
    std::vector<std::string> lines;
    for (const MessageGroup& g : groupMessages(messages)) {
        if (g.messages.size() < kGroupedFrom) {
            lines.insert(lines.end(), g.messages.begin(), g.messages.end());
            continue;
        }
        std::string line = std::to_string(g.messages.size()) + " times: " + g.kind + " (first at ";
        for (size_t i = 0; i < g.messages.size() && i < kPlacesShown; ++i) {
            const Parts p = partsOf(g.messages[i]);
            line += (i == 0 ? "" : ", ") + p.place + (p.place.empty() || p.tag.empty() ? "" : " ") +
                    p.tag;
        }
        if (g.messages.size() > kPlacesShown) {
            line += ", and " + std::to_string(g.messages.size() - kPlacesShown) + " more";
        }
        lines.push_back(line + "; --verbose lists each)");
    }
    return lines;
}

}  // namespace inspect
