// The rules of a build without muparser (a cross build whose target has no
// muparser package): the checks run, and a rules file is refused with one
// error that says why.
#include "Engine.h"

namespace kvanalysis {

std::vector<Rule> parseRules(std::string_view, const std::string& file, std::string* error) {
    *error = file + ": rules need muparser, and this build of the session checks has none";
    return {};
}

std::vector<Rule> readRules(const std::string& path, std::string* error) {
    return parseRules({}, path, error);
}

void runRules(const Session&, const std::vector<Rule>&, const std::vector<std::string>&,
              const GetterResults&, std::vector<CheckResult>&, std::vector<Finding>&,
              std::string*) {}

}  // namespace kvanalysis
