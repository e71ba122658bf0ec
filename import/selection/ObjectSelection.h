// Which catalogs, schemas and tables of a source a user asked for: include and exclude name
// patterns per kind, in the manner of pg_dump's -n/-N/-t/-T.
#pragma once

#include "platform/WyString.h"

#include <vector>

/// One name pattern, parsed. Syntax:
///   `*` any sequence of characters, `?` any one character;
///   `.` separates the parts of a qualified pattern (`schema.table`, `catalog.schema.table`),
///       which match the last parts of an object's name path;
///   letters outside double quotes match ignoring case (`sales` matches SALES and Sales);
///   inside double quotes every character stands for itself, case included, so `"Sales"`,
///   `"a.b"` and `"x*"` are exact names; `""` inside quotes is one double quote.
class NamePattern {
public:
    /// Parses `text` into at most `maxParts` parts. Throws ErrorMessage saying what is wrong: an
    /// empty pattern, an unclosed double quote, or more parts than the kind of object has.
    NamePattern(const WyString& text, size_t maxParts);

    /// True when the last parts of `path` (outermost first) match the pattern's parts; `path` has
    /// at least as many parts as the pattern.
    bool Matches(const std::vector<const WyString*>& path) const;

    const WyString& Text() const { return m_text; }

private:
    struct Token {
        enum Kind { kLiteral, kAnyOne, kAnySequence } kind;
        wchar_t literal;
        bool exactCase;
    };
    using Part = std::vector<Token>;
    static bool PartMatches(const Part& part, const WyString& name);

    WyString m_text;
    std::vector<Part> m_parts;
};

/// The objects a user selected. An include pattern of a kind, once given, selects only what
/// matches one of them; an exclude pattern drops what it matches, whatever an include says. A
/// kind's patterns also decide for everything beneath it: a table is selected only when its schema
/// is, and a schema only when its catalog is. Table patterns leave catalogs and schemas as they are.
class ObjectSelection {
public:
    enum Kind { kCatalog = 0, kSchema = 1, kTable = 2 };

    /// Adds an include (or exclude) pattern of `kind`: at most one part for a catalog, two for a
    /// schema (`catalog.schema`), three for a table. Throws ErrorMessage for a malformed pattern.
    void Add(Kind kind, bool include, const WyString& pattern);

    /// True when no pattern was given, so every object is selected.
    bool SelectsAll() const;

    bool CatalogSelected(const WyString& catalog) const;
    bool SchemaSelected(const WyString& catalog, const WyString& schema) const;
    bool TableSelected(const WyString& catalog, const WyString& schema, const WyString& table) const;

private:
    bool Passes(Kind kind, const std::vector<const WyString*>& path) const;

    std::vector<NamePattern> m_include[3], m_exclude[3];
};
