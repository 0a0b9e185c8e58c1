// The registry script of the server, in the usual brace notation:
//
//   HKCR { NoRemove AppID { '%APPID%' = s 'text' { val AppID = s '%APPID%' } } }
//
// Replacements (%NAME%) are made first; `%%` stands for a percent sign. The
// parser is platform-free so that tests drive it directly; the applier walks
// the tree against the real registry.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vn_rgs {

struct Value {
    std::string name;  // empty for the key's default value
    char type = 's';   // 's' text or 'd' number
    std::string data;
};

struct Key {
    enum Removal { Normal, NoRemove, ForceRemove, Delete } removal = Normal;
    std::string name;
    bool hasDefault = false;
    Value defaultValue;
    std::vector<Value> values;
    std::vector<Key> children;
};

struct Script {
    std::vector<Key> roots;  // top level: HKCR, HKLM, HKCU names
};

using Replacements = std::map<std::string, std::string>;

// Replaces %NAME% by its value; false (with `error`) for an unknown name or a lone '%'.
bool Substitute(const std::string& text, const Replacements& replacements, std::string& out, std::string& error);

// Parses the substituted text; false with a short reason on a syntax error.
bool Parse(const std::string& text, Script& script, std::string& error);

}  // namespace vn_rgs
