// The readers' notes and warnings, grouped by kind for people to read: a
// real phone's dump can give thirty warnings of one kind, one per camera
// block, which would push the report below the fold.
#pragma once

#include <string>
#include <vector>

namespace inspect {

// Messages of one kind: the same text once the place ("file:line: "), the
// tag ("android.x.y: ") and the numbers are set aside.
struct MessageGroup {
    std::string kind;                   // the first message without its place and tag
    std::vector<std::string> messages;  // in the order given
};

// The messages grouped by kind, the groups in the order of their first message.
std::vector<MessageGroup> groupMessages(const std::vector<std::string>& messages);

// One line per group of five or more messages: their count, the kind and
// the first places ("12 times: ... (first at f:3 android.a.b, ...)"); the
// messages of smaller groups as they are, in place of their group. With
// `all`, every message as it is.
std::vector<std::string> messageLines(const std::vector<std::string>& messages, bool all);

}  // namespace inspect
