// The writer library's text forms: brace-escaped literals, property clauses, and the name makers
// that keep generated key and join names apart from those already taken.
#include "platform/UDMLWyGenerator.h"

#include "platform/BaseStringUtil.h"

#include <algorithm>

const WyString s_ksBlank;

WyString UDMLWyGenerator::EscapeCurlyBraceInWyString(const WyString& text) {
    WyString out;
    out.reserve(text.size() + 2);
    out.push_back(L'{');
    for (const wchar_t c : text) {
        if (c == L'\\' || c == L'{' || c == L'}')
            out.push_back(L'\\');
        out.push_back(c);
    }
    out.push_back(L'}');
    return out;
}

WyString& UDMLWyGenerator::GenerateTblOrColumnProperties(const WyStringStringMap& properties, WyString& out) {
    if (properties.empty())
        return out;
    out += L" PROPERTIES (";
    bool first = true;
    for (const auto& [key, value] : properties) {
        if (!first)
            out += L", ";
        first = false;
        out += EscapeCurlyBraceInWyString(key);
        out += L" = ";
        out += EscapeCurlyBraceInWyString(value);
    }
    out += L')';
    return out;
}

void ExternalizationUtil::SetZelIsHiddenProperty(WyStringStringMap& properties, bool hidden) {
    properties[S_IS_HIDDEN] = hidden ? L"true" : L"false";
}

WyString GenerateUniqueName(WyStringVector& names, const WyString& candidate) {
    auto taken = [&names](const WyString& name) {
        return std::find(names.begin(), names.end(), name) != names.end();
    };
    if (!taken(candidate))
        return candidate;
    // At most names.size() suffixes can be taken, so this ends within names.size() + 1 tries.
    for (unsigned int n = 1;; ++n) {
        WyString name = candidate + L"_" + BaseStringUtil::StringFrom(n);
        if (!taken(name))
            return name;
    }
}

WyString GenerateName(const wchar_t* base, int& n) {
    WyString name = base ? WyString(base) : WyString();
    name += L'_';
    name += BaseStringUtil::StringFrom(n);
    return name;
}
