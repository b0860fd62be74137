// Fuzzes the reader of the BLE profile table, a file users edit: any bytes must be read without a
// crash and within the table's limits, every profile kept must name a light protocol, and matching a
// name must agree with the profiles' own rules (the first profile that accepts a name wins).
#include "bleprofiles.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char *>(data), qsizetype(size));
    BleProfiles table;
    const bool loaded = table.parse(bytes);
    const QList<BleProfile> &profiles = table.profiles();
    if (!loaded && !profiles.isEmpty())
        std::abort();
    if (profiles.size() > BleProfiles::MaxProfiles)
        std::abort();

    for (const BleProfile &profile : profiles) {
        if (!BleProfiles::isLightProtocol(profile.protocolType) || profile.namePrefixes.size() > BleProfiles::MaxPrefixes)
            std::abort();
        if (!profile.namePattern.pattern().isEmpty() && !profile.namePattern.isValid())
            std::abort();
        // Each prefix, taken as a whole name, finds a profile, and the first one that accepts it.
        for (const QString &prefix : profile.namePrefixes) {
            const BleProfile *found = table.match(prefix);
            if (!profile.matches(prefix))
                continue;
            if (!found || !found->matches(prefix))
                std::abort();
            for (const BleProfile &earlier : profiles) {
                if (&earlier == found)
                    break;
                if (earlier.matches(prefix))
                    std::abort();
            }
        }
    }
    // Arbitrary text as an advertised name: a match must accept it by its own rules.
    const QString name = QString::fromUtf8(bytes.left(BleProfiles::MaxTextLength));
    if (const BleProfile *found = table.match(name); found && !found->matches(name))
        std::abort();
    return 0;
}
