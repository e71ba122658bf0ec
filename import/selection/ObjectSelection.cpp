// Name patterns and the include/exclude rules. Parts are matched with one backtracking point (the
// last "*"), so the cost stays proportional to pattern length times name length whatever the
// pattern holds.
#include "import/selection/ObjectSelection.h"

#include "platform/BaseStringUtil.h"
#include "platform/ErrorMessage.h"

namespace {

const wchar_t* const kKindNames[] = {L"catalog", L"schema", L"table"};
const wchar_t* const kQualifiedForms[] = {L"catalog", L"catalog.schema", L"catalog.schema.table"};

} // namespace

NamePattern::NamePattern(const WyString& text, size_t maxParts) : m_text(text), m_parts(1) {
    if (text.empty())
        throw ErrorMessage(L"an empty pattern selects nothing; use * for every name");
    bool quoted = false;
    for (size_t pos = 0; pos < text.size(); ++pos) {
        const wchar_t c = text[pos];
        Part& part = m_parts.back();
        if (quoted) {
            if (c != L'"')
                part.push_back({Token::kLiteral, c, true});
            else if (pos + 1 < text.size() && text[pos + 1] == L'"')
                part.push_back({Token::kLiteral, text[++pos], true});
            else
                quoted = false;
        } else if (c == L'"') {
            quoted = true;
        } else if (c == L'.') {
            m_parts.emplace_back();
        } else if (c == L'*') {
            // Consecutive "*" mean the same as one; collapsing them keeps the matcher simple.
            if (part.empty() || part.back().kind != Token::kAnySequence)
                part.push_back({Token::kAnySequence, 0, false});
        } else if (c == L'?') {
            part.push_back({Token::kAnyOne, 0, false});
        } else {
            part.push_back({Token::kLiteral, BaseStringUtil::ToLower(c), false});
        }
    }
    if (quoted)
        throw ErrorMessage(L"'" + text + L"' opens a double quote that it does not close");
    if (m_parts.size() > maxParts)
        throw ErrorMessage(L"'" + text + L"' has " + BaseStringUtil::StringFrom(unsigned(m_parts.size())) +
                           L" dot-separated parts; at most " +
                           BaseStringUtil::StringFrom(unsigned(maxParts)) + L" (" +
                           kQualifiedForms[maxParts - 1] +
                           L") are allowed here; write a dot that is part of a name inside double quotes");
}

bool NamePattern::PartMatches(const Part& part, const WyString& name) {
    auto same = [](const Token& token, wchar_t c) {
        return token.kind == Token::kAnyOne ||
               (token.kind == Token::kLiteral &&
                token.literal == (token.exactCase ? c : BaseStringUtil::ToLower(c)));
    };
    size_t t = 0, n = 0;
    size_t starToken = part.size(), starName = 0;
    while (n < name.size()) {
        if (t < part.size() && part[t].kind == Token::kAnySequence) {
            starToken = t++;
            starName = n;
        } else if (t < part.size() && same(part[t], name[n])) {
            ++t;
            ++n;
        } else if (starToken < part.size()) {
            t = starToken + 1;
            n = ++starName;
        } else {
            return false;
        }
    }
    while (t < part.size() && part[t].kind == Token::kAnySequence)
        ++t;
    return t == part.size();
}

bool NamePattern::Matches(const std::vector<const WyString*>& path) const {
    const size_t skip = path.size() - m_parts.size();
    for (size_t i = 0; i < m_parts.size(); ++i)
        if (!PartMatches(m_parts[i], *path[skip + i]))
            return false;
    return true;
}

void ObjectSelection::Add(Kind kind, bool include, const WyString& pattern) {
    try {
        (include ? m_include : m_exclude)[kind].emplace_back(pattern, size_t(kind) + 1);
    } catch (ErrorMessage& error) {
        error.AddMessageFront(WyString(L"the ") + kKindNames[kind] + L" pattern is malformed");
        throw;
    }
}

bool ObjectSelection::SelectsAll() const {
    for (int kind = kCatalog; kind <= kTable; ++kind)
        if (!m_include[kind].empty() || !m_exclude[kind].empty())
            return false;
    return true;
}

bool ObjectSelection::Passes(Kind kind, const std::vector<const WyString*>& path) const {
    auto anyMatches = [&](const std::vector<NamePattern>& patterns) {
        for (const NamePattern& pattern : patterns)
            if (pattern.Matches(path))
                return true;
        return false;
    };
    return (m_include[kind].empty() || anyMatches(m_include[kind])) && !anyMatches(m_exclude[kind]);
}

bool ObjectSelection::CatalogSelected(const WyString& catalog) const {
    return Passes(kCatalog, {&catalog});
}

bool ObjectSelection::SchemaSelected(const WyString& catalog, const WyString& schema) const {
    return CatalogSelected(catalog) && Passes(kSchema, {&catalog, &schema});
}

bool ObjectSelection::TableSelected(const WyString& catalog, const WyString& schema,
                                    const WyString& table) const {
    return SchemaSelected(catalog, schema) && Passes(kTable, {&catalog, &schema, &table});
}
