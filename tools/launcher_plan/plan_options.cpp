// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/plan_options.hpp"

namespace {

bool take_value(const std::vector<std::string>& words, std::size_t& index, std::string& value, std::string& error)
{
    if (index + 1 >= words.size()) {
        error = "option " + words[index] + " needs a value";
        return false;
    }
    value = words[++index];
    return true;
}

}  // namespace

bool Plan_options::parse(const std::vector<std::string>& words, Plan_options& options, std::string& error)
{
    bool kind_given = false;
    for (std::size_t index = 0; index < words.size(); ++index) {
        const std::string& word = words[index];
        if (word == "--hostname") {
            options.hostname_given = true;
            if (!take_value(words, index, options.hostname, error)) {
                return false;
            }
        } else if (word == "--root") {
            if (!take_value(words, index, options.root, error)) {
                return false;
            }
        } else if (word == "--json") {
            options.json = true;
        } else if (word == "--check") {
            options.check = true;
        } else if (word.rfind("--", 0) == 0 || kind_given) {
            error = "unexpected argument " + word;
            return false;
        } else {
            options.kind = word;
            kind_given = true;
        }
    }
    if (!kind_given) {
        error = "the launcher kind is missing";
        return false;
    }
    return true;
}
