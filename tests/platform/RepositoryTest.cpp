// The in-memory repository: identity of declared objects, exact name lookups and finding the join
// between two tables. Database properties and typed references are reached through the golden
// texts of view links restricted by module.
#include "platform/repository/ARpGateway.h"

#include <gtest/gtest.h>

namespace {

class FirstParts : public ACondition {
public:
    explicit FirstParts(WyString first) : m_first(std::move(first)) {}
    bool Matches(const ARpObject& object) const override {
        return !object.GetQualifiedName().empty() && object.GetQualifiedName()[0] == m_first;
    }

private:
    WyString m_first;
};

VoidIDVector Find(const ARpGateway& gateway, TypeID type, const QualifiedName& name) {
    VoidIDVector ids{999}; // replaced, not appended to
    gateway.FindObjects(NamedInterfaceTypeCondition(type, name, false), ids);
    return ids;
}

TEST(Gateway, DeclaringAgainKeepsOneObjectAndLookupsAreExact) {
    ARpGateway gateway;
    ADatabase& db = gateway.DeclareDatabase(L"Sales DB");
    EXPECT_EQ(1u, db.GetId());
    EXPECT_EQ(&db, &gateway.DeclareDatabase(L"Sales DB"));

    const QualifiedName table{L"Sales DB", L"", L"dbo", L"Order \"Lines\""};
    const VoidID id = gateway.DeclareObject(kTIDATable, table);
    EXPECT_EQ(2u, id);
    EXPECT_EQ(id, gateway.DeclareObject(kTIDATable, table));
    EXPECT_NE(id, gateway.DeclareObject(kTIDATableKey, table)); // same path, other type
    EXPECT_EQ(3u, gateway.ObjectCount());

    EXPECT_EQ(VoidIDVector{id}, Find(gateway, kTIDATable, table));
    EXPECT_TRUE(Find(gateway, kTIDATable, {L"sales db", L"", L"dbo", L"Order \"Lines\""}).empty());
    EXPECT_TRUE(Find(gateway, kTIDATable, {L"Sales DB", L"dbo", L"Order \"Lines\""}).empty());
    EXPECT_TRUE(Find(gateway, kTIDASchema, table).empty());
    VoidIDVector ids;
    gateway.FindObjects(
        NamedInterfaceTypeCondition(kTIDATable, L"Order \"Lines\"", {L"Sales DB", L"", L"dbo"}, false), ids);
    EXPECT_EQ(VoidIDVector{id}, ids);

    // Other conditions scan every object, in declaration order.
    gateway.DeclareObject(kTIDACatalog, {L"Other", L"C"});
    gateway.FindObjects(FirstParts(L"Sales DB"), ids);
    EXPECT_EQ((VoidIDVector{1, 2, 3}), ids);
}

TEST(Gateway, ComplexJoinsBelongToTheFirstTablesDatabaseAndAreFoundInEitherOrder) {
    ARpGateway gateway;
    const QualifiedName emp{L"AppDB", L"C", L"S", L"EmpView"}, dept{L"AppDB", L"C", L"S", L"DeptView"};
    const QualifiedName other{L"AppDB", L"C", L"S", L"Other"};
    const Ref<ARpObject> empRef = gateway.GetObjectRef(gateway.DeclareObject(kTIDATable, emp));
    const Ref<ARpObject> deptRef = gateway.GetObjectRef(gateway.DeclareObject(kTIDATable, dept));
    const Ref<ARpObject> otherRef = gateway.GetObjectRef(gateway.DeclareObject(kTIDATable, other));
    EXPECT_TRUE(MetadataUtil::FindComplexJoinBetweenTables(empRef, deptRef).IsNull());

    const VoidID join = gateway.DeclareComplexJoin(L"EmpView_DeptView", dept, emp);
    EXPECT_EQ(join, gateway.DeclareComplexJoin(L"EmpView_DeptView", dept, emp));
    EXPECT_EQ(VoidIDVector{join}, Find(gateway, kTIDAComplexJoin, {L"AppDB", L"EmpView_DeptView"}));

    EXPECT_EQ(join, MetadataUtil::FindComplexJoinBetweenTables(empRef, deptRef).GetId());
    EXPECT_EQ(join, MetadataUtil::FindComplexJoinBetweenTables(deptRef, empRef).GetId());
    EXPECT_TRUE(MetadataUtil::FindComplexJoinBetweenTables(empRef, otherRef).IsNull());
    EXPECT_TRUE(MetadataUtil::FindComplexJoinBetweenTables(empRef, Ref<ARpObject>()).IsNull());
    EXPECT_TRUE(MetadataUtil::FindComplexJoinBetweenTables(Ref<ARpObject>(), deptRef).IsNull());

    // A join to a table of another database still belongs to its first table's database.
    const QualifiedName far{L"Far", L"", L"S", L"T"};
    const VoidID cross = gateway.DeclareComplexJoin(L"J", far, emp);
    EXPECT_EQ((QualifiedName{L"Far", L"J"}), gateway.GetObject(cross)->GetQualifiedName());
    const auto* crossJoin = dynamic_cast<const AComplexJoin*>(gateway.GetObject(cross));
    ASSERT_NE(nullptr, crossJoin);
    EXPECT_TRUE(crossJoin->Joins(emp, far));
}

} // namespace
