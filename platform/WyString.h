// Wide strings and the containers of them that every layer of the generator passes around.
// A WyString holds 32-bit code units (wchar_t on Linux); an empty string and one never set are alike.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

using WyString = std::wstring;

/// Ordered vector of WyString, a class of its own so that hosts may derive from it.
class WyStringVector : public std::vector<WyString> {
public:
    using std::vector<WyString>::vector;
    WyStringVector() = default;
    WyStringVector(const WyStringVector&) = default;
    WyStringVector(WyStringVector&&) = default;
    WyStringVector& operator=(const WyStringVector&) = default;
    WyStringVector& operator=(WyStringVector&&) = default;
    virtual ~WyStringVector() = default;
};

/// Ordered set with exact, case-sensitive comparison.
using WyStringSet = std::set<WyString>;
/// Ordered property map: the writer library renders it as a property clause.
using WyStringStringMap = std::map<WyString, WyString>;
/// Ordered map from a two-element name path (schema or catalog, table) to a text.
using WyMetadataMap = std::map<WyStringVector, WyString>;
using WyStringPairVector = std::vector<std::pair<WyString, WyString>>;
