"""The names of the runtime options, stated anew: what the module says is held against them."""

NAMES = [
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
]
"""The options by type code."""
