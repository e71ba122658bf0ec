// The repository as an in-memory object model: objects with a type id and a qualified name
// (database first), database property categories, and complex joins between two tables.
#pragma once

#include "platform/WyString.h"
#include "platform/repository/SMPTypeIDDatabase.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>
#include <vector>

using VoidID = uint64_t;
using VoidIDVector = std::vector<VoidID>;
using QualifiedName = WyStringVector;

class ARpGateway;

/// A table of named string properties.
class SUPropertiesTable {
public:
    void SetProperty(const WyString& name, const WyString& value) { m_properties[name] = value; }
    /// The value of `name`, or the empty text when the table lacks it. Answers whether it was there.
    bool GetProperty(const WyString& name, WyString& value) const;
    const WyStringStringMap& Entries() const { return m_properties; }

private:
    WyStringStringMap m_properties;
};
using DatabasePropertiesTable = SUPropertiesTable;
/// Property categories of a database by category name.
using DatabasePropertiesTableMap = std::map<WyString, DatabasePropertiesTable>;

class ARpObject {
public:
    ARpObject(VoidID id, TypeID type, QualifiedName name) : m_id(id), m_type(type), m_name(std::move(name)) {}
    virtual ~ARpObject() = default;
    VoidID GetId() const { return m_id; }
    TypeID GetTypeId() const { return m_type; }
    /// Database first, the object's own name last.
    const QualifiedName& GetQualifiedName() const { return m_name; }

private:
    VoidID m_id;
    TypeID m_type;
    QualifiedName m_name;
};

class ADatabase : public ARpObject {
public:
    using ARpObject::ARpObject;
    /// Copies every property category into `categories`.
    void GetDatabaseProperties(DatabasePropertiesTableMap& categories) const { categories = m_categories; }
    DatabasePropertiesTableMap& PropertyCategories() { return m_categories; }

private:
    DatabasePropertiesTableMap m_categories;
};

/// A complex join between two tables, named under the database of its first table.
class AComplexJoin : public ARpObject {
public:
    AComplexJoin(VoidID id, QualifiedName name, QualifiedName firstTable, QualifiedName secondTable)
        : ARpObject(id, kTIDAComplexJoin, std::move(name)), m_first(std::move(firstTable)),
          m_second(std::move(secondTable)) {}
    const QualifiedName& FirstTable() const { return m_first; }
    const QualifiedName& SecondTable() const { return m_second; }
    /// True when the join joins the tables `a` and `b`, in either order.
    bool Joins(const QualifiedName& a, const QualifiedName& b) const {
        return (m_first == a && m_second == b) || (m_first == b && m_second == a);
    }

private:
    QualifiedName m_first;
    QualifiedName m_second;
};

/// A search condition of FindObjects.
class ACondition {
public:
    virtual ~ACondition() = default;
    virtual bool Matches(const ARpObject& object) const = 0;
};

/// Objects of one type whose qualified name equals a path exactly, letter case included.
class NamedInterfaceTypeCondition : public ACondition {
public:
    NamedInterfaceTypeCondition(TypeID type, const QualifiedName& qName, bool /*unused*/)
        : m_type(type), m_name(qName) {}
    /// The path `qualifiers` followed by `name`.
    NamedInterfaceTypeCondition(TypeID type, const WyString& name, const WyStringVector& qualifiers,
                                bool /*unused*/)
        : m_type(type), m_name(qualifiers) {
        m_name.push_back(name);
    }
    bool Matches(const ARpObject& object) const override {
        return object.GetTypeId() == m_type && object.GetQualifiedName() == m_name;
    }
    TypeID GetType() const { return m_type; }
    const QualifiedName& GetName() const { return m_name; }

private:
    TypeID m_type;
    QualifiedName m_name;
};

/// A reference to a repository object by id; null when it names none.
template <class T> class Ref {
public:
    Ref() = default;
    Ref(ARpGateway* gateway, VoidID id) : m_pGateway(gateway), m_id(id) {}
    bool IsNull() const;
    ARpGateway* GetGateway() const { return m_pGateway; }
    VoidID GetId() const { return m_id; }

private:
    ARpGateway* m_pGateway = nullptr;
    VoidID m_id = 0;
};

class ARpGateway {
public:
    ARpGateway() = default;
    ARpGateway(const ARpGateway&) = delete;
    ARpGateway& operator=(const ARpGateway&) = delete;

    /// Replaces `ids` with the ids of the objects that satisfy `condition`, in declaration order.
    void FindObjects(const ACondition& condition, VoidIDVector& ids) const;
    /// A reference to the object with `id`; null when there is none.
    Ref<ARpObject> GetObjectRef(VoidID id);
    /// The object with `id`, or null.
    ARpObject* GetObject(VoidID id) const;

    /// Declares an object; declaring the same type and path again keeps the one object.
    VoidID DeclareObject(TypeID type, const QualifiedName& name);
    /// Declares the database `name` (a one-part path) and returns it.
    ADatabase& DeclareDatabase(const WyString& name);
    /// Declares a complex join named `name` under the database of `firstTable`.
    VoidID DeclareComplexJoin(const WyString& name, const QualifiedName& firstTable,
                              const QualifiedName& secondTable);

    /// The first declared complex join between the tables `a` and `b` (either order), or 0.
    VoidID FindComplexJoin(const QualifiedName& a, const QualifiedName& b) const;

    /// Visits every object in declaration order.
    void ForEachObject(const std::function<void(const ARpObject&)>& visit) const;
    size_t ObjectCount() const { return m_objects.size(); }

private:
    struct KeyHash {
        size_t operator()(const std::pair<TypeID, QualifiedName>& key) const;
    };
    std::vector<std::unique_ptr<ARpObject>> m_objects; // id N is m_objects[N - 1]
    std::unordered_map<std::pair<TypeID, QualifiedName>, VoidID, KeyHash> m_byName;
    // Joins by their two tables, the lesser path first, so that finding one needs no scan.
    std::map<std::pair<QualifiedName, QualifiedName>, VoidID> m_joinsByTables;
};

template <class T> bool Ref<T>::IsNull() const {
    return m_pGateway == nullptr || m_pGateway->GetObject(m_id) == nullptr;
}

class RefHelper {
public:
    template <class T> static T* GetObjectPointerFromGatway(const Ref<T>& ref) {
        return ref.GetGateway() ? dynamic_cast<T*>(ref.GetGateway()->GetObject(ref.GetId())) : nullptr;
    }
    /// A reference of type T to the object of `ref`; null when the object is not a T.
    template <class T> static Ref<T> AddRef(const Ref<ARpObject>& ref) {
        Ref<T> typed(ref.GetGateway(), ref.GetId());
        return GetObjectPointerFromGatway(typed) ? typed : Ref<T>();
    }
    template <class T> static void ReleaseRef(Ref<T>& ref) { ref = Ref<T>(); }
};

class MetadataUtil {
public:
    /// A complex join that already joins the two tables (in either order), or a null reference.
    static Ref<ARpObject> FindComplexJoinBetweenTables(const Ref<ARpObject>& source,
                                                       const Ref<ARpObject>& target);
};
