#include "platform/repository/UdmlContent.h"

#include "platform/BaseStringUtil.h"

#include <functional>

size_t UdmlContent::KeyHash::operator()(const Key& key) const {
    size_t seed = std::hash<TypeID>()(key.first) ^ key.second.size();
    for (const WyString& part : key.second)
        seed ^= std::hash<WyString>()(part) + 0x9e3779b97f4a7c15ULL + (seed << 6) + (seed >> 2);
    return seed;
}

void UdmlContent::Merge(TypeID type, const QualifiedName& name, UdmlFields fields) {
    const auto [found, inserted] = m_objects.try_emplace({type, name}, std::move(fields));
    if (inserted)
        return; // the common case: the object's first statement, taken over as it is
    for (auto& [piece, value] : fields)
        found->second[piece] = std::move(value);
}

const UdmlFields* UdmlContent::Find(TypeID type, const QualifiedName& name) const {
    const auto found = m_objects.find({type, name});
    return found == m_objects.end() ? nullptr : &found->second;
}

std::string UdmlContent::QualifiedText(const QualifiedName& name) {
    std::string out;
    for (size_t i = 0; i < name.size(); ++i) {
        std::string part;
        BaseStringUtil::AppendUtf8(name[i], part);
        out += i == 0 ? "\"" : ".\"";
        for (const char c : part) {
            out.push_back(c);
            if (c == '"')
                out.push_back('"');
        }
        out.push_back('"');
    }
    return out;
}
