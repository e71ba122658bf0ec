#include "OnlyNew.h"

namespace udmlgen {

OnlyNewFilter::OnlyNewFilter(VirtualTable& output, const ARpGateway& repository)
    : m_output(output), m_repository(repository), m_splitter(output, [this](Statement& s) { Take(s); }) {}

bool OnlyNewFilter::Holds(const ARpObject& object) const {
    VoidIDVector ids;
    m_repository.FindObjects(
        NamedInterfaceTypeCondition(object.GetTypeId(), object.GetQualifiedName(), false), ids);
    return !ids.empty();
}

void OnlyNewFilter::Take(Statement& statement) {
    // What cannot be read back is written as it is: leaving it out would lose text unseen.
    if (!statement.readable || statement.objects.empty() || !Holds(*statement.objects.front())) {
        Forward(statement, m_output);
        return;
    }
    const ARpObject& own = *statement.objects.front();
    if (own.GetTypeId() != kTIDATable)
        return;
    for (size_t i = 1; i < statement.objects.size(); ++i) {
        const ARpObject& column = *statement.objects[i];
        const QualifiedName& name = column.GetQualifiedName();
        if (column.GetTypeId() == kTIDAColumn && name.size() == 5 && !Holds(column))
            m_columns.push_back({name[1], name[2], name[3], name[4]});
    }
}

} // namespace udmlgen
