// The routine table: the sections in the order they stand in a file. The order is not the
// order of the bits (shares after users and groups, the web switch after the USB copy
// settings); it is deliberate and kept exactly.
#include "sysbkp/sysbkp_internal.h"

extern "C" {

const SYSBKP_ROUTINE grgSysRoutine[] = {
    {KOVASysbkpTimeExport, KOVASysbkpTimeImport, "time_desc", 0x00000001, 2},
    {KOVASysbkpHostnameExport, KOVASysbkpHostnameImport, "hostname_desc", 0x00000002, 2},
    {KOVASysbkpLangExport, KOVASysbkpLangImport, "language_desc", 0x00000008, 2},
    {KOVASysbkpMailExport, KOVASysbkpMailImport, "mail_desc", 0x00000010, 2},
    {KOVASysbkpAppleExport, KOVASysbkpAppleImport, "apple_desc", 0x00000040, 2},
    {KOVASysbkpWindowsExport, KOVASysbkpWindowsImport, "windows_desc", 0x00000080, 2},
    {KOVASysbkpUserExport, KOVASysbkpUserImport, "user_desc", 0x00000100, 2},
    {KOVASysbkpGroupExport, KOVASysbkpGroupImport, "group_desc", 0x00000200, 2},
    {KOVASysbkpShareExport, KOVASysbkpShareImport, "share_desc", 0x00000020, 2},
    {KOVASysbkpHDSleepTimeExport, KOVASysbkpHDSleepTimeImport, "hddsleep_desc", 0x00000400, 2},
    {KOVASysbkpRunFtpdExport, KOVASysbkpRunFtpdImport, "runftpd_desc", 0x00000800, 2},
    {KOVASysbkpPPPoEExport, KOVASysbkpPPPoEImport, "pppoe_desc", 0x00002000, 2},
    {KOVASysbkpPhotoExport, KOVASysbkpPhotoImport, "runphoto_desc", 0x00008000, 2},
    {KOVASysbkpHttpPortExport, KOVASysbkpHttpPortImport, "httpport_desc", 0x00100000, 2},
    {KOVASysbkpMTUExport, KOVASysbkpMTUImport, "MTU_desc", 0x00020000, 2},
    {KOVASysbkpRCPowerExport, KOVASysbkpRCPowerImport, "rcpower_desc", 0x00040000, 2},
    {KOVASysbkpUSBCopySetExport, KOVASysbkpUSBCopySetImport, "usbcopyset_desc", 0x00080000, 2},
    {KOVASysbkpWebExport, KOVASysbkpWebImport, "runweb_desc", 0x00010000, 2},
    {KOVASysbkpDCacheExport, KOVASysbkpDCacheImport, "dcache_desc", 0x00200000, 2},
    {KOVASysbkpFetchbayExport, KOVASysbkpFetchbayImport, "fetchbay_desc", 0x00400000, 2},
    {KOVASysbkpMySQLExport, KOVASysbkpMySQLImport, "runmysql_desc", 0x00800000, 2},
    {KOVASysbkpUserQuotaExport, KOVASysbkpUserQuotaImport, "user_quota_desc", 0x01000000, 2},
    {KOVASysbkpFinishExport, KOVASysbkpFinishImport, "", 0x02000000, 2},
    {nullptr, nullptr, nullptr, 0, 0},
};

PKLIBSZHASH gpshSysbkpImported = nullptr;

}  // extern "C"

int KOVASysbkpIGetIdx(uint32_t dwBit) {
    for (int i = 0; grgSysRoutine[i].dwBit != 0; ++i) {
        if (grgSysRoutine[i].dwBit == dwBit) return i;
    }
    return -1;
}

void kova::sysbkp::note_restored(const char *desc, int records) {
    char count[16];
    snprintf(count, sizeof count, "%d", records);
    if (gpshSysbkpImported == nullptr) gpshSysbkpImported = PshKLIBSzHashAlloc(0);
    // Only a count for the caller's report: a hash that cannot grow loses it, nothing else.
    if (gpshSysbkpImported != nullptr) KLIBSzHashSetValue(&gpshSysbkpImported, desc, count);
}

int KOVASysbkpFinishExport(int) {
    return 0;
}

int KOVASysbkpFinishImport(int, int, int) {
    KLIBSzHashFree(gpshSysbkpImported);
    gpshSysbkpImported = nullptr;
    return 0;
}

// The language belongs to each browser session, not to the appliance: no block either way.
int KOVASysbkpLangExport(int) {
    return 0;
}

int KOVASysbkpLangImport(int, int, int) {
    return 0;
}
