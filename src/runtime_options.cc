#include "runtime_options.h"

#include <iterator>

const char *runtimeOptionNames[] = {
    "IGMPQueryInterval",
    "IGMPV3MaxSrcIPNum",
    "IGMPQueries",
    "IGMPVersion",
    "MLDVersion",
    "MLDV2MaxSrcIPNum",
    "MaxRARPsPerInterval",
    "RARPAdvertisementDuration",
    "ReversePathFwdCheck",
    "ReversePathFwdCheckPromisc",
    "AllowFastPath",
    "TeamPolicyUpDelay",
    "AllowMirrorStats",
    "TeamingNUMAAware",
    "SendIGMPReportToUplink",
    "IGMPRouterIP",
    "MLDRouterIP",
};

static_assert(std::size(runtimeOptionNames) == VS_NUM_RT_OPT);
