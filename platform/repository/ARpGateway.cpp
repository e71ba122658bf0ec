// The in-memory repository: objects numbered from 1 in declaration order, found by exact
// (type, path) through a hash index, and complex joins found by their two tables through a map.
#include "platform/repository/ARpGateway.h"

#include <functional>

bool SUPropertiesTable::GetProperty(const WyString& name, WyString& value) const {
    const auto it = m_properties.find(name);
    if (it == m_properties.end()) {
        value.clear();
        return false;
    }
    value = it->second;
    return true;
}

size_t ARpGateway::KeyHash::operator()(const std::pair<TypeID, QualifiedName>& key) const {
    size_t seed = std::hash<TypeID>()(key.first);
    for (const WyString& part : key.second)
        seed ^= std::hash<WyString>()(part) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    // The part count takes part, so that ("a", "") and ("a") differ even when "" hashes to 0.
    return seed ^ key.second.size();
}

void ARpGateway::FindObjects(const ACondition& condition, VoidIDVector& ids) const {
    ids.clear();
    if (const auto* named = dynamic_cast<const NamedInterfaceTypeCondition*>(&condition)) {
        const auto it = m_byName.find({named->GetType(), named->GetName()});
        if (it != m_byName.end())
            ids.push_back(it->second);
        return;
    }
    for (const auto& object : m_objects) {
        if (condition.Matches(*object))
            ids.push_back(object->GetId());
    }
}

Ref<ARpObject> ARpGateway::GetObjectRef(VoidID id) {
    return GetObject(id) ? Ref<ARpObject>(this, id) : Ref<ARpObject>();
}

ARpObject* ARpGateway::GetObject(VoidID id) const {
    if (id == 0 || id > m_objects.size())
        return nullptr;
    return m_objects[id - 1].get();
}

VoidID ARpGateway::DeclareObject(TypeID type, const QualifiedName& name) {
    auto key = std::make_pair(type, name);
    const auto it = m_byName.find(key);
    if (it != m_byName.end())
        return it->second;
    const VoidID id = m_objects.size() + 1;
    // Databases and joins get their own classes so that typed references resolve to them.
    if (type == kTIDADatabase)
        m_objects.push_back(std::make_unique<ADatabase>(id, type, name));
    else if (type == kTIDAComplexJoin)
        m_objects.push_back(std::make_unique<AComplexJoin>(id, name, QualifiedName(), QualifiedName()));
    else
        m_objects.push_back(std::make_unique<ARpObject>(id, type, name));
    m_byName.emplace(std::move(key), id);
    return id;
}

ADatabase& ARpGateway::DeclareDatabase(const WyString& name) {
    const VoidID id = DeclareObject(kTIDADatabase, QualifiedName{name});
    return static_cast<ADatabase&>(*m_objects[id - 1]);
}

VoidID ARpGateway::DeclareComplexJoin(const WyString& name, const QualifiedName& firstTable,
                                      const QualifiedName& secondTable) {
    QualifiedName qName{firstTable.empty() ? WyString() : firstTable.front(), name};
    auto key = std::make_pair(static_cast<TypeID>(kTIDAComplexJoin), qName);
    const auto it = m_byName.find(key);
    if (it != m_byName.end())
        return it->second;
    const VoidID id = m_objects.size() + 1;
    m_objects.push_back(std::make_unique<AComplexJoin>(id, std::move(qName), firstTable, secondTable));
    m_byName.emplace(std::move(key), id);
    auto tables = secondTable < firstTable ? std::make_pair(secondTable, firstTable)
                                           : std::make_pair(firstTable, secondTable);
    m_joinsByTables.emplace(std::move(tables), id); // the first join declared stays the answer
    return id;
}

VoidID ARpGateway::FindComplexJoin(const QualifiedName& a, const QualifiedName& b) const {
    const auto it = m_joinsByTables.find(b < a ? std::make_pair(b, a) : std::make_pair(a, b));
    return it == m_joinsByTables.end() ? 0 : it->second;
}

void ARpGateway::ForEachObject(const std::function<void(const ARpObject&)>& visit) const {
    for (const auto& object : m_objects)
        visit(*object);
}

Ref<ARpObject> MetadataUtil::FindComplexJoinBetweenTables(const Ref<ARpObject>& source,
                                                          const Ref<ARpObject>& target) {
    if (source.IsNull() || target.IsNull() || source.GetGateway() != target.GetGateway())
        return Ref<ARpObject>();
    ARpGateway* gateway = source.GetGateway();
    const VoidID id = gateway->FindComplexJoin(gateway->GetObject(source.GetId())->GetQualifiedName(),
                                               gateway->GetObject(target.GetId())->GetQualifiedName());
    return id ? gateway->GetObjectRef(id) : Ref<ARpObject>();
}
