// The repository writer library's texts: brace escaping, property clauses, property keys, and the
// name makers that keep generated names unique.
#pragma once

#include "platform/WyString.h"

/// Property keys of the server's shared constants.
constexpr const wchar_t S_EFF_CONTEXT_NAME[] = L"EFF_CONTEXT_NAME";
constexpr const wchar_t S_EFF_ATTR_CATEGORY_RESID_PREFIX[] = L"EFF_ATTR_CATEGORY_RESID_";
constexpr const wchar_t S_FND_ACFF_EFF_FLEXFIELD_CODE[] = L"EFF_FLEXFIELD_CODE";
constexpr const wchar_t S_ZEL_PROPERYTY_JOIN_ONLY_WITHIN_AM[] = L"JOIN_ONLY_WITHIN_MODULE";
constexpr const wchar_t S_IS_HIDDEN[] = L"IS_HIDDEN";
extern const WyString s_ksBlank;

class UDMLWyGenerator {
public:
    /// "{", the text with "\" as "\\", "{" as "\{" and "}" as "\}", then "}".
    static WyString EscapeCurlyBraceInWyString(const WyString& text);
    /// Appends to `out` and returns it: nothing for an empty map, else " PROPERTIES (" and the
    /// entries in ascending key order as escaped key " = " escaped value, joined by ", ", then ")".
    static WyString& GenerateTblOrColumnProperties(const WyStringStringMap& properties, WyString& out);
};

class ExternalizationUtil {
public:
    /// Enters IS_HIDDEN = true (or false) into `properties`.
    static void SetZelIsHiddenProperty(WyStringStringMap& properties, bool hidden);
};

/// `candidate` when it is not in `names` (exact comparison); otherwise `candidate` + "_" + n for
/// the smallest n >= 1 whose result is not in `names`.
WyString GenerateUniqueName(WyStringVector& names, const WyString& candidate);
/// `base` + "_" + n in decimal.
WyString GenerateName(const wchar_t* base, int& n);
