#include "host/registry_script.h"

#include <cctype>

namespace vn_rgs {

bool Substitute(const std::string& text, const Replacements& replacements, std::string& out, std::string& error)
{
    out.clear();
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        size_t end = text.find('%', i + 1);
        if (end == std::string::npos) {
            error = "unterminated replacement";
            return false;
        }
        std::string name = text.substr(i + 1, end - i - 1);
        if (name.empty()) {
            out += '%';
        } else {
            auto it = replacements.find(name);
            if (it == replacements.end()) {
                error = "unknown replacement " + name;
                return false;
            }
            out += it->second;
        }
        i = end;
    }
    return true;
}

namespace {

class Parser {
public:
    explicit Parser(const std::string& text) : m_text(text) {}

    bool ParseScript(Script& script, std::string& error)
    {
        while (NextToken()) {
            Key root;
            root.name = m_token;
            if (!Expect("{") || !ParseBody(root))
                return Fail(error);
            script.roots.push_back(std::move(root));
        }
        return m_error.empty() || Fail(error);
    }

private:
    bool Fail(std::string& error)
    {
        error = m_error.empty() ? "syntax error" : m_error;
        return false;
    }

    // Body of a key up to and including its closing brace.
    bool ParseBody(Key& key)
    {
        for (;;) {
            if (!NextToken())
                return SetError("missing }");
            if (m_token == "}" && !m_quoted)
                return true;
            if (!m_quoted && EqualsNoCase(m_token, "val")) {
                Value value;
                if (!NextToken())
                    return SetError("value name expected");
                value.name = m_token;
                if (!Expect("=") || !ParseTypedData(value))
                    return false;
                key.values.push_back(std::move(value));
                continue;
            }
            Key child;
            if (!m_quoted && EqualsNoCase(m_token, "NoRemove"))
                child.removal = Key::NoRemove;
            else if (!m_quoted && EqualsNoCase(m_token, "ForceRemove"))
                child.removal = Key::ForceRemove;
            else if (!m_quoted && EqualsNoCase(m_token, "Delete"))
                child.removal = Key::Delete;
            if (child.removal != Key::Normal && !NextToken())
                return SetError("key name expected");
            child.name = m_token;
            if (!ParseKeyTail(child))
                return false;
            key.children.push_back(std::move(child));
        }
    }

    // After a key's name: an optional "= s 'text'" and an optional body.
    bool ParseKeyTail(Key& key)
    {
        size_t save = m_pos;
        if (NextToken() && !m_quoted && m_token == "=") {
            key.hasDefault = true;
            if (!ParseTypedData(key.defaultValue))
                return false;
            save = m_pos;
            if (!NextToken())
                return true;
        }
        if (!m_quoted && m_token == "{")
            return ParseBody(key);
        m_pos = save;
        return true;
    }

    bool ParseTypedData(Value& value)
    {
        if (!NextToken() || m_quoted || (m_token != "s" && m_token != "d"))
            return SetError("value type s or d expected");
        value.type = m_token[0];
        if (!NextToken())
            return SetError("value data expected");
        value.data = m_token;
        return true;
    }

    bool Expect(const char* token)
    {
        if (!NextToken() || m_quoted || m_token != token)
            return SetError(std::string("expected ") + token);
        return true;
    }

    bool SetError(const std::string& error)
    {
        if (m_error.empty())
            m_error = error;
        return false;
    }

    static bool EqualsNoCase(const std::string& a, const char* b)
    {
        size_t i = 0;
        for (; i < a.size() && b[i]; ++i)
            if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
                return false;
        return i == a.size() && !b[i];
    }

    // Reads the next token: a brace, '=', a quoted text (with '' for a quote) or a bare word.
    bool NextToken()
    {
        while (m_pos < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_pos])))
            ++m_pos;
        if (m_pos >= m_text.size())
            return false;
        m_token.clear();
        m_quoted = false;
        char c = m_text[m_pos];
        if (c == '{' || c == '}' || c == '=') {
            m_token = c;
            ++m_pos;
            return true;
        }
        if (c == '\'') {
            m_quoted = true;
            ++m_pos;
            for (;;) {
                if (m_pos >= m_text.size())
                    return SetError("unterminated text");
                char q = m_text[m_pos++];
                if (q == '\'') {
                    if (m_pos < m_text.size() && m_text[m_pos] == '\'') {
                        m_token += '\'';
                        ++m_pos;
                        continue;
                    }
                    return true;
                }
                m_token += q;
            }
        }
        while (m_pos < m_text.size()) {
            char w = m_text[m_pos];
            if (std::isspace(static_cast<unsigned char>(w)) || w == '{' || w == '}' || w == '=' || w == '\'')
                break;
            m_token += w;
            ++m_pos;
        }
        return true;
    }

    const std::string& m_text;
    size_t m_pos = 0;
    std::string m_token;
    bool m_quoted = false;
    std::string m_error;
};

}  // namespace

bool Parse(const std::string& text, Script& script, std::string& error)
{
    script.roots.clear();
    return Parser(text).ParseScript(script, error);
}

}  // namespace vn_rgs
