#include "ddalctl/sfp_names.h"

#include <iterator>

namespace ddalctl {

namespace {

constexpr const char *kConnectors[] = {
    "unknown",
    "SC",
    "FC copper style 1",
    "FC copper style 2",
    "BNC/TNC",
    "FC coaxial",
    "Fiber Jack",
    "LC",
    "MT-RJ",
    "MU",
    "SG",
    "optical pigtail",
    "MPO",
    "HSSDC II",
    "copper pigtail",
    "RJ45",
    "vendor-specific",
};

struct ComplianceName {
    uint32_t bit;
    const char *name;
};

constexpr ComplianceName kCompliance[] = {
    {63, "10GBASE-ER"},
    {62, "10GBASE-LRM"},
    {61, "10GBASE-LR"},
    {60, "10GBASE-SR"},
    {59, "InfiniBand 1X SX"},
    {58, "InfiniBand 1X LX"},
    {57, "InfiniBand 1X copper active"},
    {56, "InfiniBand 1X copper passive"},
    {55, "ESCON MMF"},
    {54, "ESCON SMF"},
    {53, "OC-192 SR"},
    {52, "SONET reach bit 1"},
    {51, "SONET reach bit 2"},
    {50, "OC-48 LR"},
    {49, "OC-48 IR"},
    {48, "OC-48 SR"},
    {46, "OC-12 SM LR"},
    {45, "OC-12 SM IR"},
    {44, "OC-12 SR"},
    {42, "OC-3 SM LR"},
    {41, "OC-3 SM IR"},
    {40, "OC-3 SR"},
    {39, "BASE-PX"},
    {38, "BASE-BX10"},
    {37, "100BASE-FX"},
    {36, "100BASE-LX/LX10"},
    {35, "1000BASE-T"},
    {34, "1000BASE-CX"},
    {33, "1000BASE-LX"},
    {32, "1000BASE-SX"},
    {31, "FC very long distance"},
    {30, "FC short distance"},
    {29, "FC intermediate distance"},
    {28, "FC long distance"},
    {27, "FC medium distance"},
    {26, "FC shortwave linear (SA)"},
    {25, "FC longwave (LC)"},
    {24, "FC electrical inter-enclosure"},
    {23, "FC electrical intra-enclosure"},
    {22, "FC shortwave without OFC"},
    {21, "FC shortwave with OFC"},
    {20, "FC longwave (LL)"},
    {19, "active cable"},
    {18, "passive cable"},
    {15, "FC twin axial pair"},
    {14, "FC twisted pair"},
    {13, "FC miniature coax"},
    {12, "FC video coax"},
    {11, "FC multimode 62.5 um"},
    {10, "FC multimode 50 um"},
    {8, "FC single mode"},
    {7, "FC 1200 MB/s"},
    {6, "FC 800 MB/s"},
    {5, "FC 1600 MB/s"},
    {4, "FC 400 MB/s"},
    {3, "FC 3200 MB/s"},
    {2, "FC 200 MB/s"},
    {0, "FC 100 MB/s"},
};

constexpr const char *kRevisions[] = {"none", "9.3", "9.5", "10.2", "10.4", "11.0", "11.3", "11.4", "12.3"};

} // namespace

std::string sfp_connector_name(uint32_t connector)
{
    return connector < std::size(kConnectors) ? kConnectors[connector] : "unknown";
}

std::string sfp_compliance_name(uint32_t bit)
{
    for (const ComplianceName &row : kCompliance) {
        if (row.bit == bit)
            return row.name;
    }
    return "bit " + std::to_string(bit);
}

std::string sfp_revision_name(uint32_t code)
{
    return code < std::size(kRevisions) ? kRevisions[code] : "code " + std::to_string(code);
}

} // namespace ddalctl
