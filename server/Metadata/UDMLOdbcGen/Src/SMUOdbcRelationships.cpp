// Relationships: foreign-key statements and their collection, the view-link restriction by
// application module, and the join statements built from view links.
#include "SMUOdbcGenerator.h"

void CUdmlGenerator::GenerateForeignKeyUdml(const WyString&) {}
void CUdmlGenerator::GenerateForeignKeyTailUdml(const MIForeignKey&) {}
bool CUdmlGenerator::GenerateAllForeignKeys(WyStringVector*) { return false; }
bool CUdmlGenerator::GenerateForeignKeys(const WyString&, const WyString&, const WyString&, const WyString&,
                                         WyStringVector*) {
    return false;
}
bool CUdmlGenerator::GenerateForeignKeys(const WyString&, const WyString&, WyStringVector*) { return false; }
void CUdmlGenerator::SetMIViewLinks(const MIViewLinkVector& linkVec) {
    m_bUseExistingStructs = true;
    m_importedMIViewLinks = linkVec;
}
bool CUdmlGenerator::GenerateViewLinks(const WyStringSet&, const WyStringSet&, const WyStringSet&) { return false; }
WyString& CUdmlGenerator::GenerateZelViewLinkExpression(const MIViewLink&, WyString& sViewLinkExpr) {
    return sViewLinkExpr;
}
size_t WyStringCaseInsensitiveHash::operator()(const WyString&) const { return 0; }
ViewLinkRestrictHelper::ViewLinkRestrictHelper(ARpGateway* pRpGateway, const WyString& sDatabase)
    : m_pRpGateway(pRpGateway), m_sDatabase(sDatabase), m_bLoaded(false) {}
ViewLinkRestrictHelper::~ViewLinkRestrictHelper() = default;
bool ViewLinkRestrictHelper::IsViewLinkProhibited(const MIViewLink&) { return false; }
void ViewLinkRestrictHelper::LoadDatabaseProperties() {}
bool ViewLinkRestrictHelper::IsViewObjectBelongsToOneOfSpecifiedAppModules(const AppModuleNamesVector&,
                                                                           const WyString&) {
    return false;
}
