// What the statements read back from UDML say about each object beyond its name: a column's type,
// precision, scale, nullability, description and properties; a table's description and
// properties; a key's columns; a foreign key's columns and the key it references; a join's
// tables. Kept apart from the repository so that reading names alone stays as cheap as it was.
#pragma once

#include "platform/repository/ARpGateway.h"

#include <map>
#include <string>
#include <unordered_map>
#include <utility>

/// The pieces of one object's statement, by piece name ("type", "precision", "scale",
/// "nullable", "description", "properties", "columns", "references", "uri", "tables"), each as
/// UTF-8 text; names of other objects are written as UDML writes them ("a"."b").
using UdmlFields = std::map<std::string, std::string>;

class UdmlContent {
public:
    using Key = std::pair<TypeID, QualifiedName>;
    struct KeyHash {
        size_t operator()(const Key& key) const;
    };
    using Map = std::unordered_map<Key, UdmlFields, KeyHash>;

    /// Records what one statement says about an object; a later statement of the same object
    /// overrides the pieces it states again and keeps the others.
    void Merge(TypeID type, const QualifiedName& name, UdmlFields fields);
    /// The pieces of an object, or null when no statement of it was read.
    const UdmlFields* Find(TypeID type, const QualifiedName& name) const;
    /// Every object, in no particular order.
    const Map& Objects() const { return m_objects; }
    void Clear() { m_objects.clear(); }

    /// A name path as UDML writes it: each part in double quotes, inner quotes doubled, "." between.
    static std::string QualifiedText(const QualifiedName& name);

private:
    Map m_objects;
};
