// The settings sections: keys of "/etc/kovainfo.conf" under the sandbox root.
//
// Sections made of keys (body: a long, the number of pairs, then key and value strings; keys
// the appliance does not have are left out, and an importer takes only its section's keys):
//   apple_desc       runafp, afp_guest
//   windows_desc     runsmb, workgroup, wins_server
//   hddsleep_desc    standbytimer, usb_standbytimer
//   runftpd_desc     runftp, ftp_port, ftpanonymous, ftpanonymousroot
//   pppoe_desc       pppoe_enable, pppoe_user, pppoe_password
//   runphoto_desc    runphoto
//   httpport_desc    http_port, https_port
//   MTU_desc         eth0_mtu
//   rcpower_desc     enableRCPower
//   usbcopyset_desc  usbcopyfolder, usbcopy_mode
//   runweb_desc      runweb
//   dcache_desc      diskcache
//   fetchbay_desc    rundownload, download_share
//   runmysql_desc    runmysql
//   user_quota_desc  userquota_enable, userquota_default_mb
//   interface        eth0_dhcp, eth0_ipaddr, eth0_netmask, eth0_gateway, dns_servers (no row)
// Sections with items of their own:
//   time_desc        the local date and time (never applied: the clock is not set from a
//                    backup), ntp_enable (a long), ntp_period, ntpserver, ntpserver2, timezone
//                    (its length asked first), daylight (a long)
//   hostname_desc    hostname (also written to "/etc/hostname")
//   mail_desc        mail_smtp, mail_addr1, mail_addr2, mail_test (a long)
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "core/alloc.h"
#include "core/owners.h"
#include "core/paths.h"
#include "core/rewrite.h"
#include "core/root.h"
#include "kovasdk/file.h"
#include "kovasdk/hash.h"
#include "sysbkp/sysbkp_internal.h"

namespace kova::sysbkp {
namespace {

constexpr int kLockSeconds = 5;

const KeySection kApple{
    KOVA_SYSBKP_APPLE, "apple_desc", 0x1210000D, 0x1210000E, {"runafp", "afp_guest"}};
const KeySection kWindows{KOVA_SYSBKP_WINDOWS,
                          "windows_desc",
                          0x1210000F,
                          0x12100010,
                          {"runsmb", "workgroup", "wins_server"}};
const KeySection kHDSleep{KOVA_SYSBKP_HDSLEEP,
                          "hddsleep_desc",
                          0x12100015,
                          0x12100016,
                          {"standbytimer", "usb_standbytimer"}};
const KeySection kFtpd{KOVA_SYSBKP_FTPD,
                       "runftpd_desc",
                       0x12100017,
                       0x12100018,
                       {"runftp", "ftp_port", "ftpanonymous", "ftpanonymousroot"}};
const KeySection kPPPoE{KOVA_SYSBKP_PPPOE,
                        "pppoe_desc",
                        0x1210001B,
                        0x1210001C,
                        {"pppoe_enable", "pppoe_user", "pppoe_password"}};
const KeySection kPhoto{KOVA_SYSBKP_PHOTO, "runphoto_desc", 0x1210001F, 0x12100020, {"runphoto"}};
const KeySection kHttpPort{
    KOVA_SYSBKP_HTTPPORT, "httpport_desc", 0x12100109, 0x1210010A, {"http_port", "https_port"}};
const KeySection kMTU{KOVA_SYSBKP_MTU, "MTU_desc", 0x12100103, 0x12100104, {"eth0_mtu"}};
const KeySection kRCPower{
    KOVA_SYSBKP_RCPOWER, "rcpower_desc", 0x12100105, 0x12100106, {"enableRCPower"}};
const KeySection kUSBCopy{KOVA_SYSBKP_USBCOPY,
                          "usbcopyset_desc",
                          0x12100107,
                          0x12100108,
                          {"usbcopyfolder", "usbcopy_mode"}};
const KeySection kWeb{KOVA_SYSBKP_WEB, "runweb_desc", 0x12100101, 0x12100102, {"runweb"}};
const KeySection kDCache{KOVA_SYSBKP_DCACHE, "dcache_desc", 0x1210010B, 0x1210010C, {"diskcache"}};
const KeySection kFetchbay{KOVA_SYSBKP_FETCHBAY,
                           "fetchbay_desc",
                           0x1210010D,
                           0x1210010E,
                           {"rundownload", "download_share"}};
const KeySection kMySQL{KOVA_SYSBKP_MYSQL, "runmysql_desc", 0x1210010F, 0x12100110, {"runmysql"}};
const KeySection kUserQuota{KOVA_SYSBKP_USERQUOTA,
                            "user_quota_desc",
                            0x12100111,
                            0x12100112,
                            {"userquota_enable", "userquota_default_mb"}};
const KeySection kInterface{
    KOVA_SYSBKP_INTERFACE,
    "interface",
    0x12100005,
    0x12100006,
    {"eth0_dhcp", "eth0_ipaddr", "eth0_netmask", "eth0_gateway", "dns_servers"}};

constexpr uint32_t kTimeExportEvent = 0x12100001;
constexpr uint32_t kTimeImportEvent = 0x12100002;
constexpr uint32_t kHostnameExportEvent = 0x12100003;
constexpr uint32_t kHostnameImportEvent = 0x12100004;
constexpr uint32_t kMailExportEvent = 0x12100009;
constexpr uint32_t kMailImportEvent = 0x1210000A;

// A value the settings file can hold between its double quotes on one line.
bool clean_value(const std::string &value) {
    return value.find_first_of("\"\n\r") == std::string::npos;
}

int failed(uint32_t event) {
    record_failure(event);
    return -1;
}

const char *yes_no(bool on) {
    return on ? "yes" : "no";
}

// The whole of a small file of the appliance root, replaced or created.
bool write_whole_file(const char *absolute, const std::string &content) {
    const RootedPath path(absolute);
    Rewrite rewrite(path.c_str(), {});
    const auto put = [&](FILE *out) {
        return fwrite(content.data(), 1, content.size(), out) == content.size();
    };
    switch (rewrite.open()) {
        case Rewrite::Opened::kOk:
            return rewrite.start() && rewrite.put(content) && rewrite.commit();
        case Rewrite::Opened::kMissing:
            return rewrite.create({}, 0644, put);
        case Rewrite::Opened::kFailed:
            break;
    }
    return false;
}

bool valid_hostname(const char *name) {
    const size_t len = strlen(name);
    if (len == 0 || len > 63 || name[0] == '-' || name[len - 1] == '-') return false;
    for (const char *p = name; *p != '\0'; ++p) {
        const char c = *p;
        const bool ok =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
        if (!ok) return false;
    }
    return true;
}

}  // namespace

std::pair<bool, std::string> get_setting(const char *key) {
    const RootedPath path(paths::kKovaInfo);
    const int len = KLIBFileGetKeyValue(path.c_str(), key, nullptr, 0, 0);
    if (len <= 0) return {false, {}};
    std::string value(static_cast<size_t>(len), '\0');
    if (KLIBFileGetKeyValue(path.c_str(), key, value.data(), len, 0) <= 0) return {false, {}};
    value.resize(strlen(value.c_str()));
    return {true, value};
}

bool set_settings(const std::vector<std::pair<std::string, std::string>> &pairs) {
    // Only the keys whose value changes: a restore onto an appliance that already has them
    // rewrites nothing.
    std::vector<const std::pair<std::string, std::string> *> changed;
    for (const auto &pair : pairs) {
        const auto [found, value] = get_setting(pair.first.c_str());
        if (!found || value != pair.second) changed.push_back(&pair);
    }
    if (changed.empty()) return true;
    PKLIBSZHASH set = PshKLIBSzHashAlloc(0);
    if (set == nullptr) return false;
    bool ok = true;
    for (const auto *pair : changed) {
        ok = ok && KLIBSzHashSetValue(&set, pair->first.c_str(), pair->second.c_str()) >= 0;
    }
    if (ok && ErrKLIBFileLock(KLIB_LOCK_KOVAINFO | KLIB_LOCK_EX, kLockSeconds) == 0) {
        const RootedPath path(paths::kKovaInfo);
        ok = KLIBFileSetKeys(path.c_str(), set, nullptr, KLIB_FILE_FORMAT_QUOTED) >= 0;
        ok = ErrKLIBFileUnlock(KLIB_LOCK_KOVAINFO) == 0 && ok;
    } else {
        ok = false;
    }
    KLIBSzHashFree(set);
    return ok;
}

int export_keys(int fd, const KeySection &section) {
    std::vector<std::pair<const char *, std::string>> present;
    for (const char *key : section.keys) {
        auto [found, value] = get_setting(key);
        if (found) present.emplace_back(key, std::move(value));
    }
    const bool ok = write_block(fd, section.bit, section.desc, [&](int out) {
        if (KOVASysbkpIWriteLong(out, static_cast<uint32_t>(present.size())) != 0) return false;
        for (const auto &[key, value] : present) {
            if (KOVASysbkpIWriteString(out, key) != 0 ||
                KOVASysbkpIWriteString(out, value.c_str()) != 0) {
                log_at(LOG_ERR, Site(__LINE__, section.desc), "%s(%d): fail to write %s", key);
                return false;
            }
        }
        return true;
    });
    return ok ? 0 : failed(section.export_event);
}

int import_keys(int fd, const KeySection &section) {
    ItemReader items(fd);
    const uint32_t count = items.number();
    std::vector<std::pair<std::string, std::string>> pairs;
    for (uint32_t i = 0; items.ok() && i < count && i < section.keys.size(); ++i) {
        std::string key = items.text();
        std::string value = items.text();
        bool known = false;
        for (const char *own : section.keys)
            known = known || key == own;
        if (!known || !clean_value(value)) {
            fail_in(section.desc, ERR_FORMAT_ERROR, Site(), "%s(%d): bad setting [%s]",
                    key.c_str());
            return failed(section.import_event);
        }
        pairs.emplace_back(std::move(key), std::move(value));
    }
    if (!items.ok() || count > section.keys.size() || !items.at_end()) {
        fail_in(section.desc, ERR_FORMAT_ERROR, Site(), "%s(%d): damaged section");
        return failed(section.import_event);
    }
    if (!set_settings(pairs)) return failed(section.import_event);
    note_restored(section.desc, static_cast<int>(pairs.size()));
    return 0;
}

}  // namespace kova::sysbkp

using namespace kova;
using namespace kova::sysbkp;

#define KEY_SECTION(Name, section)                   \
    int KOVASysbkp##Name##Export(int fd) {           \
        return export_keys(fd, section);             \
    }                                                \
    int KOVASysbkp##Name##Import(int fd, int, int) { \
        return import_keys(fd, section);             \
    }

KEY_SECTION(Apple, kApple)
KEY_SECTION(Windows, kWindows)
KEY_SECTION(HDSleepTime, kHDSleep)
KEY_SECTION(RunFtpd, kFtpd)
KEY_SECTION(PPPoE, kPPPoE)
KEY_SECTION(Photo, kPhoto)
KEY_SECTION(HttpPort, kHttpPort)
KEY_SECTION(MTU, kMTU)
KEY_SECTION(RCPower, kRCPower)
KEY_SECTION(USBCopySet, kUSBCopy)
KEY_SECTION(Web, kWeb)
KEY_SECTION(DCache, kDCache)
KEY_SECTION(Fetchbay, kFetchbay)
KEY_SECTION(MySQL, kMySQL)
KEY_SECTION(UserQuota, kUserQuota)
KEY_SECTION(Interface, kInterface)

int KOVASysbkpTimeExport(int fd) {
    const time_t now = time(nullptr);
    struct tm local {};
    char date[64];
    if (localtime_r(&now, &local) == nullptr) {
        log_at(LOG_ERR, Site(__LINE__, __func__), "%s(%d): fail to get time");
        return failed(kTimeExportEvent);
    }
    snprintf(date, sizeof date, "%4d/%02d/%02d %02d:%02d:%02d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    const RootedPath info(paths::kKovaInfo);
    const int zone_size = KLIBFileGetKeyValue(info.c_str(), "timezone", nullptr, 0, 0);
    if (zone_size < 0) {
        log_at(LOG_ERR, Site(__LINE__, __func__), "%s(%d): fail to get zone size");
        return failed(kTimeExportEvent);
    }
    std::string zone(static_cast<size_t>(zone_size) + 1, '\0');
    if (zone_size > 0 &&
        KLIBFileGetKeyValue(info.c_str(), "timezone", zone.data(), zone_size + 1, 0) <= 0) {
        log_at(LOG_ERR, Site(__LINE__, __func__), "%s(%d): fail to get zone ");
        return failed(kTimeExportEvent);
    }
    const bool ntp = get_setting("ntp_enable").second == "yes";
    const bool daylight = get_setting("daylight").second == "yes";
    const bool ok = write_block(fd, KOVA_SYSBKP_TIME, __func__, [&](int out) {
        const struct {
            bool ok;
            const char *message;
        } steps[] = {
            {KOVASysbkpIWriteString(out, date) == 0, "%s(%d): fail to write time"},
            {KOVASysbkpIWriteLong(out, ntp ? 1 : 0) == 0, "%s(%d): fail to write runNtp"},
            {KOVASysbkpIWriteString(out, get_setting("ntp_period").second.c_str()) == 0,
             "%s(%d): fail to write szPeriod"},
            {KOVASysbkpIWriteString(out, get_setting("ntpserver").second.c_str()) == 0,
             "%s(%d): fail to write ntp server"},
            {KOVASysbkpIWriteString(out, get_setting("ntpserver2").second.c_str()) == 0,
             "%s(%d): fail to write backup ntp server"},
            {KOVASysbkpIWriteString(out, zone.c_str()) == 0, "%s(%d): fail to write zone"},
            {KOVASysbkpIWriteLong(out, daylight ? 1 : 0) == 0,
             "%s(%d): fail to get day light setting"},
        };
        for (const auto &step : steps) {
            if (!step.ok) {
                log_at(LOG_ERR, Site(__LINE__, "KOVASysbkpTimeExport"), step.message);
                return false;
            }
        }
        return true;
    });
    return ok ? 0 : failed(kTimeExportEvent);
}

int KOVASysbkpTimeImport(int fd, int, int) {
    ItemReader items(fd);
    items.text();  // the date and time of the export: the clock is never set from a backup
    const bool ntp = items.number() != 0;
    std::string period = items.text();
    std::string server = items.text();
    std::string backup = items.text();
    std::string zone = items.text();
    const bool daylight = items.number() != 0;
    if (!items.ok() || !items.at_end() || !clean_value(period) || !clean_value(server) ||
        !clean_value(backup) || !clean_value(zone)) {
        fail_in(__func__, ERR_FORMAT_ERROR, Site(), "%s(%d): damaged section");
        return failed(kTimeImportEvent);
    }
    if (!set_settings({{"ntp_enable", yes_no(ntp)},
                       {"ntp_period", period},
                       {"ntpserver", server},
                       {"ntpserver2", backup},
                       {"timezone", zone},
                       {"daylight", yes_no(daylight)}})) {
        return failed(kTimeImportEvent);
    }
    note_restored("time_desc", 1);
    return 0;
}

int KOVALnxSetHostname(const char *szHostname) {
    if (szHostname == nullptr) return fail(ERR_BAD_PARAMETERS);
    if (!valid_hostname(szHostname)) return fail(ERR_INVALID_SERVERNAME);
    if (!set_settings({{"hostname", szHostname}})) return -1;
    return write_whole_file(kHostnameFile, std::string(szHostname) + "\n") ? 0 : -1;
}

int KOVASysbkpHostnameExport(int fd) {
    const auto current = get_setting("hostname");
    const std::string &name = current.second;
    if (!current.first) {
        fail_in(__func__, ERR_KEY_NOT_FOUND, Site(), "%s(%d): fail to get hostname");
        return failed(kHostnameExportEvent);
    }
    const bool ok = write_block(fd, KOVA_SYSBKP_HOSTNAME, __func__, [&](int out) {
        if (KOVASysbkpIWriteString(out, name.c_str()) == 0) return true;
        log_at(LOG_ERR, Site(__LINE__, "KOVASysbkpHostnameExport"),
               "%s(%d): fail to write hostname");
        return false;
    });
    return ok ? 0 : failed(kHostnameExportEvent);
}

int KOVASysbkpHostnameImport(int fd, int, int option) {
    ItemReader items(fd);
    const std::string name = items.text();
    if (!items.ok() || !items.at_end()) {
        fail_in(__func__, ERR_FORMAT_ERROR, Site(), "%s(%d): damaged section");
        return failed(kHostnameImportEvent);
    }
    if (option == 0 || name == get_setting("hostname").second) return 0;
    const int rc = KOVALnxSetHostname(name.c_str());
    if (rc != 0) {
        log_at(LOG_ERR, Site(__LINE__, __func__),
               "%s(%d): call KOVALnxSetHostname and fail and return %d, errno=0x%04X\n", rc,
               static_cast<unsigned>(KLIBErrGet()));
        return failed(kHostnameImportEvent);
    }
    note_restored("hostname_desc", 1);
    return 0;
}

int KOVAMailGet(PKOVAMAIL *ppMail) {
    if (ppMail == nullptr) return fail(ERR_BAD_PARAMETERS);
    const std::string smtp = get_setting("mail_smtp").second;
    const std::string mail1 = get_setting("mail_addr1").second;
    const std::string mail2 = get_setting("mail_addr2").second;
    const size_t size = sizeof(KOVAMAIL) + smtp.size() + mail1.size() + mail2.size() + 3;
    auto *mail = static_cast<PKOVAMAIL>(xmalloc(size));
    if (mail == nullptr) return fail(ERR_OUT_OF_MEMORY);
    char *at = reinterpret_cast<char *>(mail + 1);
    for (auto [field, text] : {std::pair{&mail->szSmtp, &smtp}, std::pair{&mail->szMail1, &mail1},
                               std::pair{&mail->szMail2, &mail2}}) {
        *field = at;
        memcpy(at, text->c_str(), text->size() + 1);
        at += text->size() + 1;
    }
    mail->blTest = get_setting("mail_test").second == "yes" ? 1 : 0;
    *ppMail = mail;
    return 0;
}

int KOVAMailSet(const KOVAMAIL *pMail) {
    if (pMail == nullptr || pMail->szSmtp == nullptr || pMail->szMail1 == nullptr ||
        pMail->szMail2 == nullptr) {
        return fail(ERR_BAD_PARAMETERS);
    }
    for (const char *text : {pMail->szSmtp, pMail->szMail1, pMail->szMail2}) {
        if (!clean_value(text)) return fail(ERR_BAD_PARAMETERS);
    }
    return set_settings({{"mail_smtp", pMail->szSmtp},
                         {"mail_addr1", pMail->szMail1},
                         {"mail_addr2", pMail->szMail2},
                         {"mail_test", yes_no(pMail->blTest != 0)}})
               ? 0
               : -1;
}

void KOVAMailFree(PKOVAMAIL pMail) {
    free(pMail);
}

int KOVASysbkpMailExport(int fd) {
    PKOVAMAIL mail = nullptr;
    if (KOVAMailGet(&mail) != 0) return failed(kMailExportEvent);
    const UniqueMalloc<KOVAMAIL> owner(mail);
    const bool ok = write_block(fd, KOVA_SYSBKP_MAIL, __func__, [&](int out) {
        const Site site(__LINE__, "KOVASysbkpMailExport");
        if (KOVASysbkpIWriteString(out, mail->szSmtp) != 0) {
            log_at(LOG_ERR, site, "%s(%d): fail to write MailSetting.szSmtp[%s]", mail->szSmtp);
            return false;
        }
        if (KOVASysbkpIWriteString(out, mail->szMail1) != 0) {
            log_at(LOG_ERR, site, "%s(%d): fail to write MailSetting.szMail1[%s]", mail->szMail1);
            return false;
        }
        if (KOVASysbkpIWriteString(out, mail->szMail2) != 0) {
            log_at(LOG_ERR, site, "%s(%d): fail to write MailSetting.szMail2[%s]", mail->szMail2);
            return false;
        }
        if (KOVASysbkpIWriteLong(out, static_cast<uint32_t>(mail->blTest)) != 0) {
            log_at(LOG_ERR, site, "%s(%d): fail to write MailSetting.blTest[%d]", mail->blTest);
            return false;
        }
        return true;
    });
    return ok ? 0 : failed(kMailExportEvent);
}

int KOVASysbkpMailImport(int fd, int, int) {
    ItemReader items(fd);
    std::string smtp = items.text();
    std::string mail1 = items.text();
    std::string mail2 = items.text();
    const uint32_t test = items.number();
    if (!items.ok() || !items.at_end()) {
        fail_in(__func__, ERR_FORMAT_ERROR, Site(), "%s(%d): damaged section");
        return failed(kMailImportEvent);
    }
    KOVAMAIL mail{smtp.data(), mail1.data(), mail2.data(), test != 0 ? 1 : 0};
    if (KOVAMailSet(&mail) != 0) return failed(kMailImportEvent);
    note_restored("mail_desc", 1);
    return 0;
}
