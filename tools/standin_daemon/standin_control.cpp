// SPDX-License-Identifier: Apache-2.0
#include "tools/standin_daemon/standin_control.hpp"

#include <fstream>
#include <sstream>

namespace {

std::string trim(const std::string& text)
{
    const auto begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) {
        return "";
    }
    const auto end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

std::string unescape(const std::string& text)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 1 < text.size() && text[i + 1] == 'n') {
            result += '\n';
            ++i;
        } else {
            result += text[i];
        }
    }
    return result;
}

bool to_number(const std::string& text, long& value)
{
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos || text.size() > 9) {
        return false;
    }
    value = std::stol(text);
    return true;
}

bool to_flag(const std::string& text, bool& value)
{
    if (text == "yes" || text == "true" || text == "1") {
        value = true;
        return true;
    }
    if (text == "no" || text == "false" || text == "0") {
        value = false;
        return true;
    }
    return false;
}

}  // namespace

bool Standin_control::apply(const std::string& key, const std::string& value, std::string& error)
{
    long number = 0;
    bool ok = true;
    if (key == "ready") {
        if (value == "now") {
            ready_after_ms = 0;
        } else if (value == "never") {
            ready_after_ms = never;
        } else {
            ok = to_number(value, ready_after_ms);
        }
    } else if (key == "first") {
        first_datagram = unescape(value);
    } else if (key == "ready_text") {
        ready_datagram = unescape(value);
    } else if (key == "ignore_term") {
        ok = to_flag(value, ignore_term);
    } else if (key == "exit_after") {
        ok = to_number(value, exit_after_ms);
    } else if (key == "exit_code") {
        ok = to_number(value, number) && number <= 255;
        exit_code = static_cast<int>(number);
    } else {
        error = "unknown key '" + key + "'";
        return false;
    }
    if (!ok) {
        error = "bad value '" + value + "' for " + key;
    }
    return ok;
}

bool Standin_control::parse(const std::string& text, std::string& error)
{
    std::istringstream lines(text);
    std::string line;
    int number = 0;
    while (std::getline(lines, line)) {
        ++number;
        const std::string content = trim(line);
        if (content.empty() || content[0] == '#') {
            continue;
        }
        const auto equals = content.find('=');
        if (equals == std::string::npos) {
            error = "line " + std::to_string(number) + ": no '='";
            return false;
        }
        std::string reason;
        if (!apply(trim(content.substr(0, equals)), trim(content.substr(equals + 1)), reason)) {
            error = "line " + std::to_string(number) + ": " + reason;
            return false;
        }
    }
    return true;
}

bool Standin_control::load(const std::string& path, std::string& error)
{
    std::ifstream file(path);
    if (!file) {
        return true;
    }
    std::ostringstream text;
    text << file.rdbuf();
    return parse(text.str(), error);
}
