// The table of names: what the data model gives against what operators' managers know.

#include <gtest/gtest.h>

#include "generated/lconfd_trap_rows.h"
#include "lconfd/lconfd_trap.h"

#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

// All names begin so.
static const std::string prefix = "lumora";

// Traps 1 to 110 in their order; "-" has no name.
static constexpr const char *traps =
    "ActionsSystemSoftwareInstallStatus ActionsSystemRebootIssued - BfdBfdStateChange AppRouteSlaChange "
    "HardwareFlashFault HardwareEmmcFault HardwareSdcardFault HardwareTempsensorFault "
    "HardwareTempsensorState HardwareFanFault HardwareFantrayFault HardwarePemFault HardwarePemStateChange "
    "HardwarePimFault HardwarePimStateChange HardwareSfpStateChange HardwareSfpSupportState "
    "HardwareUsbStateChange - OmpOmpStateChange OmpOmpPeerStateChange OmpOmpTlocStateChange OmpOmpPolicy "
    "SecurityControlConnectionStateChange SecurityControlConnectionAuthFail "
    "SecurityControlVtolmenStateChange SecurityControlConnectionTlocIpChange "
    "SecurityControlNoActiveVkeelson SecurityControlNoActiveVtolmen SecurityTunnelIpsecRekey "
    "SecurityTunnelIpsecManualRekey SecuritySecurityRootCertChainInstalled "
    "SecuritySecurityCertificateInstalled SecuritySecurityNewCsrGenerated "
    "SecuritySecurityRootCertChainUninstalled SecuritySecurityClearInstalledCertificate "
    "SecuritySecurityVpylonSerialFileUploaded SecuritySecurityVkeelsonSerialFileUploaded "
    "SecuritySecurityVpylonEntryAdded SecuritySecurityVpylonEntryRemoved SecuritySecurityVkeelsonEntryAdded "
    "SecuritySecurityVkeelsonEntryRemoved SystemProcessRestart SystemDiskUsage SystemMemoryUsage "
    "SystemAaaAdminPwdChange SystemSiteIdChange SystemDomainIdChange SystemSystemIpChange "
    "SystemOrgNameChange SystemSystemLoginChange SystemSystemLogoutChange SystemSystemAaaLoginFail "
    "SystemSystemCommit VpnBgpPeerStateChange VpnInterfaceStateChange VpnVrrpGroupStateChange "
    "VpnRouteInstallFail VpnTunnelInstallFail VpnDhcpAddressAssigned VpnDhcpAddressRenewed "
    "VpnDhcpAddressReleased VpnDhcpRequestRejected VpnDhcpServerStateChange VpnPimNeighborStateChange "
    "VpnPimInterfaceStateChange VpnPimTunnelStateChange VpnOspfNeighborStateChange "
    "VpnOspfInterfaceStateChange SystemPseudoCommitStatus SecuritySecurityCertificateExpired "
    "VpnFibStateChange BridgeCreation BridgeDeletion BridgeMaxMacReached SecurityControlVpylonListRequest "
    "PolicySlaViolation - VpnInterfacePcsFaultDetected SystemAppDpiFlowsOutOfMemory SecurityGreStateUpdate "
    "VpnInterfaceBw PolicyDataPolicyAssociationStatus PolicyAccessListAssociationStatus "
    "SecurityVgantryConnectionPreferenceChanged VpnAerolaneMaxLocalExitExceeded "
    "VpnAerolaneApplicationChange VpnAerolaneScoreChange - SystemAppDpiFlowsWriteFailedVpylon "
    "VpnInterfaceAdminStateChange - - - SystemProcessDown ActionsSystemRebootAborted - "
    "SecurityDeviceTemplateMissing SecurityDeviceTemplateAttachedDuringZtp PolicyZbfFlowCreation "
    "PolicyZbfFlowDeletion PolicyZbfFlowTableFull PolicyZbfClearFlowTableFull PolicyZbfPktLog "
    "PolicyZbfHalfOpenHit - PolicySlaConfig VpnLastResortStateChange -";

static constexpr struct {
    uint32_t ns;
    const char *names;
} fields[] = {
    {1593798223,  // actions
     "ActionsInstallId ActionsMessage ActionsRebootReason ActionsReason ActionsStatus"},
    {1455535224,  // BFD
     "BfdDstIp BfdDstPort BfdLocalColor BfdLocalSystemIp BfdNewState BfdProto BfdRemoteColor "
     "BfdRemoteSystemIp BfdSrcIp BfdSrcPort BfdDeleted BfdFlapReason"},
    {2090827910,  // application route
     "AppRouteDstIp AppRouteDstPort AppRouteLocalColor AppRouteLocalSystemIp AppRouteProto "
     "AppRouteRemoteColor AppRouteRemoteSystemIp AppRouteSrcIp AppRouteSrcPort AppRouteMeanLoss "
     "AppRouteMeanLatency AppRouteMeanJitter AppRouteSlaClasses AppRouteOldSlaClasses"},
    {2130598988,  // hardware
     "HardwareFanId HardwareFantrayId HardwareHwDevIndex HardwareHwSensorType HardwareName HardwareNewState "
     "HardwareSensorNewState HardwarePemId HardwarePimId HardwareSfpName HardwareTemp HardwareUsbSlot"},
    {162406642,  // VPN
     "VpnLocalRouterid VpnPimEnabled VpnAdminState VpnBgpNewState VpnClientMac VpnFailureReason "
     "VpnFarEndSystemIp VpnGrpId VpnIfAddr VpnIfName VpnInterface VpnIp VpnIpPrefix VpnLocalAddress "
     "VpnNeighbor VpnNewState VpnNewAdminState VpnOperState VpnOspfNewState VpnPeer VpnPeerRouterid "
     "VpnPimNewState VpnReason VpnRouterId VpnState VpnTunnelAddress VpnVpnId VpnVrrpGroupState "
     "VpnIfCfgBwKbps VpnTrafficDirection VpnDuration AerolaneApplication AerolaneExitType GatewayIp "
     "AppLatency AppLoss ExitLocalColor ExitRemoteColor VpnAddressFamilyType VpnFibLastUpdateTime"},
    {1351169660,  // OMP
     "OmpNewState OmpNumberOfVkeelsons OmpOmpAddressFamily OmpPeer OmpPeerNewState OmpPolicy "
     "OmpVkeelsonPeer"},
    {1634786692,  // security
     "SecurityPersonality SecurityLocalColor SecurityLocalSystemIp SecurityNewPublicIp "
     "SecurityNewPublicPort SecurityNewState SecurityOldPublicIp SecurityOldPublicPort SecurityPeerSystemIp "
     "SecurityPeerVgantrySystemIp SecurityPeerType SecurityPublicIp SecurityPublicPort SecurityReason "
     "SecurityRemoteColor SecuritySerial SecuritySrcColor SecurityUptime SecurityUuid SecurityGreVpnId "
     "SecurityGreIfName SecurityGreOldOperState SecurityGreNewOperState SecurityGreTunnelSource "
     "SecurityGreTunnelDestination SecurityGreGreIp SecurityOrganizationName SecuritySpOrganizationName"},
    {1480636862,  // system
     "SystemFreeMb SystemNewDomainId SystemNewOrganizationName SystemNewSiteId SystemNewSystemIp "
     "SystemOldDomainId SystemOldOrganizationName SystemOldSiteId SystemOldSystemIp SystemProcessId "
     "SystemProcessName SystemReason SystemTotalMb SystemUserId SystemUserName SystemWarning "
     "SystemRemoteHost SystemStatusStr"},
    {1793179096,  // bridge
     "BridgeId NumMacs"},
    {627311236,  // policy
     "PolicyVpnId PolicyApplication PolicySourceIp PolicySourcePort PolicyDestinationIp "
     "PolicyDestinationPort PolicyProtocol PolicyDscp PolicySlaInformation PolicySlaStatus "
     "PolicyVpnListName PolicyName PolicyAccessListName PolicyStatus PolicySvcVpnId PolicyZonePair "
     "PolicySourceVpn PolicyDestinationVpn PolicyState PolicyCurrFlows PolicyHthreshFlows PolicyMaxFlows "
     "PolicyLthreshFlows PolicyAction PolicyCurrHalfOpenFlows PolicyHthreshHalfOpenFlows "
     "PolicyMaxHalfOpenFlows PolicyLthreshHalfOpenFlows PolicySlaName PolicySlaOperation PolicySlaLoss "
     "PolicySlaLatency PolicySlaJitter"},
};

TEST(TrapTable, EveryTrapWithANameHasItsRowAndNoOtherHas)
{
    std::map<int, std::string> wanted, found;
    std::istringstream words(traps);
    std::string name;
    for (int index = 1; words >> name; index++)
        if (name != "-")
            wanted[index] = prefix + name;
    ASSERT_EQ(wanted.size(), 100u);
    for (const t_lconfd_trap_row &row : lconfd_trap_rows)
        if (row.trap_index != 0 && !found.emplace(row.trap_index, row.mib_name).second)
            ADD_FAILURE() << row.mib_name << " takes a trap that has a name";
    EXPECT_EQ(found, wanted);
}

TEST(TrapTable, EveryFieldHasItsRow)
{
    std::set<std::pair<uint32_t, std::string>> wanted, found;
    for (const auto &module : fields) {
        std::istringstream words(module.names);
        std::string name;
        while (words >> name)
            wanted.emplace(module.ns, prefix + name);
    }
    for (const t_lconfd_trap_row &row : lconfd_trap_rows)
        if (row.trap_index == 0)
            found.emplace(row.ns, row.mib_name);
    EXPECT_EQ(found, wanted);
}

TEST(TrapTableGolden, TheDaemonsOwnNotifications)
{
    static constexpr uint32_t policy_space = 0x25640284;
    static constexpr struct {
        uint32_t tag;
        const char *name;
        int trap_index;
    } rows[] = {{0x73e916a8, "lumoraPolicyDataPolicyAssociationStatus", 84},
                {0x026db0d4, "lumoraPolicyAccessListAssociationStatus", 85},
                {0x61fe004e, "lumoraPolicyName", 0},
                {0x0ed4d8e3, "lumoraPolicyVpnListName", 0},
                {0x1420cbfa, "lumoraPolicyAccessListName", 0},
                {0x74470328, "lumoraPolicyStatus", 0}};
    lconfd_trap_module_init();
    for (const auto &row : rows) {
        xml_tag tag = {row.tag, policy_space};
        const t_lconfd_trap_hash_entry *p_entry = lconfd_trap_table_lookup(&tag);
        ASSERT_NE(p_entry, nullptr) << row.name;
        EXPECT_STREQ(p_entry->mib_name, row.name);
        EXPECT_EQ(p_entry->trap_index, row.trap_index) << row.name;
    }
    lconfd_trap_module_free();
}
