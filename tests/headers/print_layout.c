/* SPDX-License-Identifier: GPL-2.0-only */
/* Prints what the shared headers say: sizes, offset and size of each field, and values. */
#include <brim/dbgtap_intf.h>
#include <brim/fc2_intf.h>
#include <brim/ipaddr.h>
#include <brim/ipfc_intf.h>
#include <brim/ivrip_intf.h>
#include <brim/mip_intf.h>
#include <brim/types.h>

#include <stdio.h>

#define RECORD(type) printf("\n%s %u\n", #type, (unsigned)sizeof(type))
#define FIELD(type, field)                                                                         \
    printf("%u %u %s\n", (unsigned)offsetof(type, field), (unsigned)sizeof(((type*)0)->field),     \
           #field)
#define VALUE(name) printf("%s %u\n", #name, (unsigned)(name))
#define CODE(name) printf("0x%08x %s\n", (unsigned)(name), #name)

static void print_types(void)
{
    RECORD(wwn_t);
    FIELD(wwn_t, str);
    FIELD(wwn_t, num);
    RECORD(fcid_t);
    FIELD(fcid_t, str);
    FIELD(fcid_t, invalid);
    FIELD(fcid_t, domain);
    FIELD(fcid_t, area);
    FIELD(fcid_t, port);
    FIELD(fcid_t, num);
    RECORD(vsan_id_t);
    RECORD(if_index_t);
    RECORD(if_index_type_t);
    RECORD(ip_addr_t);
    RECORD(bool32_t);
    RECORD(mac_t);
    FIELD(mac_t, ether_addr_octet);
    RECORD(inet_addr_type_t);
    RECORD(upd_action_t);
    RECORD(ipfc_intf_adm_status_t);
    RECORD(inet_addr_t);
    FIELD(inet_addr_t, addr_type);
    FIELD(inet_addr_t, a);
    FIELD(inet_addr_t, a.ipv4_addr);
    FIELD(inet_addr_t, a.ipv6_addr);
}

static void print_command_records(void)
{
    RECORD(pn_to_fcid_ioctl_t);
    FIELD(pn_to_fcid_ioctl_t, vsan_id);
    FIELD(pn_to_fcid_ioctl_t, ww_portname);
    FIELD(pn_to_fcid_ioctl_t, fcid);
    RECORD(vsan_interface_ioctl_t);
    FIELD(vsan_interface_ioctl_t, vsan_id);
    FIELD(vsan_interface_ioctl_t, fcid);
    FIELD(vsan_interface_ioctl_t, ww_portname);
    FIELD(vsan_interface_ioctl_t, ww_nodename);
    FIELD(vsan_interface_ioctl_t, ifindex);
    FIELD(vsan_interface_ioctl_t, action);
    FIELD(vsan_interface_ioctl_t, ip_addr);
    RECORD(ipfc_get_intf_ioctl_t);
    FIELD(ipfc_get_intf_ioctl_t, vsan_id);
    FIELD(ipfc_get_intf_ioctl_t, intf_adm_status);
    FIELD(ipfc_get_intf_ioctl_t, ww_portname);
    FIELD(ipfc_get_intf_ioctl_t, ww_nodename);
    FIELD(ipfc_get_intf_ioctl_t, fcid);
    FIELD(ipfc_get_intf_ioctl_t, num_sec_ip_addr);
    FIELD(ipfc_get_intf_ioctl_t, ip_addr);
    RECORD(req_mapping_t);
    FIELD(req_mapping_t, vsan_id);
    FIELD(req_mapping_t, ww_portname);
    RECORD(ivrip_ioctl_t);
    FIELD(ivrip_ioctl_t, ip_addr);
    FIELD(ivrip_ioctl_t, pwwn);
    FIELD(ivrip_ioctl_t, fcid);
    FIELD(ivrip_ioctl_t, vsan);
}

static void print_statistics_record(void)
{
    RECORD(ipfc_intf_stats_ioctl_t);
    FIELD(ipfc_intf_stats_ioctl_t, vsan_id);
    FIELD(ipfc_intf_stats_ioctl_t, snmp_stats);
    FIELD(ipfc_intf_stats_ioctl_t, rx_packets);
    FIELD(ipfc_intf_stats_ioctl_t, tx_packets);
    FIELD(ipfc_intf_stats_ioctl_t, rx_bytes);
    FIELD(ipfc_intf_stats_ioctl_t, tx_bytes);
    FIELD(ipfc_intf_stats_ioctl_t, rx_errors);
    FIELD(ipfc_intf_stats_ioctl_t, tx_errors);
    FIELD(ipfc_intf_stats_ioctl_t, rx_dropped);
    FIELD(ipfc_intf_stats_ioctl_t, tx_dropped);
    FIELD(ipfc_intf_stats_ioctl_t, multicast);
    FIELD(ipfc_intf_stats_ioctl_t, collisions);
    FIELD(ipfc_intf_stats_ioctl_t, ifInMulticastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifInBroadcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifOutMulticastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifOutBroadcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCInOctets);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCInUcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCInMulticastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCInBroadcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCOutOctets);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCOutUcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCOutMulticastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifHCOutBroadcastPkts);
    FIELD(ipfc_intf_stats_ioctl_t, ifInUnknownProtos);
}

static void print_link_layer(void)
{
    RECORD(ipfc_ntw_hdr_t);
    FIELD(ipfc_ntw_hdr_t, hdr1.dmac_to_ww);
    FIELD(ipfc_ntw_hdr_t, hdr1.daddr);
    FIELD(ipfc_ntw_hdr_t, hdr1.smac_to_ww);
    FIELD(ipfc_ntw_hdr_t, hdr1.saddr);
    FIELD(ipfc_ntw_hdr_t, hdr2.dwwn);
    FIELD(ipfc_ntw_hdr_t, hdr2.swwn);
    RECORD(ipfc_llc_hdr_t);
    FIELD(ipfc_llc_hdr_t, dsap);
    FIELD(ipfc_llc_hdr_t, ssap);
    FIELD(ipfc_llc_hdr_t, llc);
    FIELD(ipfc_llc_hdr_t, protid);
    FIELD(ipfc_llc_hdr_t, ethertype);
    RECORD(ipfc_ll_addr_t);
    FIELD(ipfc_ll_addr_t, ww_portname);
    FIELD(ipfc_ll_addr_t, fcid);
}

static void print_fc2_bind_and_nport(void)
{
    RECORD(struct sockaddr_fc2);
    FIELD(struct sockaddr_fc2, sa_family);
    FIELD(struct sockaddr_fc2, vsan);
    FIELD(struct sockaddr_fc2, srcifindex);
    FIELD(struct sockaddr_fc2, srcifmask);
    FIELD(struct sockaddr_fc2, d_id);
    FIELD(struct sockaddr_fc2, d_idmask);
    FIELD(struct sockaddr_fc2, type);
    FIELD(struct sockaddr_fc2, m_rule);
    FIELD(struct sockaddr_fc2, m_size);
    FIELD(struct sockaddr_fc2, nmatch);
    FIELD(struct sockaddr_fc2, flags);
    FIELD(struct sockaddr_fc2, m_offset);
    FIELD(struct sockaddr_fc2, m_values);
    RECORD(fc2_opt_nport_t);
    FIELD(fc2_opt_nport_t, flags);
    FIELD(fc2_opt_nport_t, vsan);
    FIELD(fc2_opt_nport_t, d_id);
    FIELD(fc2_opt_nport_t, d_idmask);
    FIELD(fc2_opt_nport_t, ifindex);
    FIELD(fc2_opt_nport_t, plogi);
    FIELD(fc2_opt_nport_t, proxy_did);
    RECORD(els_plogi_t);
    FIELD(els_plogi_t, code);
    FIELD(els_plogi_t, common.fcph);
    FIELD(els_plogi_t, common.buf2buf_credit);
    FIELD(els_plogi_t, common.common_features);
    FIELD(els_plogi_t, common.buf2buf_size);
    FIELD(els_plogi_t, common.total_concurrent);
    FIELD(els_plogi_t, common.off_by_info);
    FIELD(els_plogi_t, common.e_d_tov);
    FIELD(els_plogi_t, nport_wwn);
    FIELD(els_plogi_t, node_wwn);
    FIELD(els_plogi_t, class1.serv_opts);
    FIELD(els_plogi_t, class1.initiator_ctl);
    FIELD(els_plogi_t, class1.rcpt_ctl);
    FIELD(els_plogi_t, class1.recv_size);
    FIELD(els_plogi_t, class1.concurrent_seqs);
    FIELD(els_plogi_t, class1.end2end_credit);
    FIELD(els_plogi_t, class1.open_seqs_per_xchg);
    FIELD(els_plogi_t, class1.cls6mc_rxid);
    FIELD(els_plogi_t, class2);
    FIELD(els_plogi_t, class3);
    FIELD(els_plogi_t, class4);
    FIELD(els_plogi_t, vendorversion);
    RECORD(els_logo_t);
    FIELD(els_logo_t, code);
    FIELD(els_logo_t, s_id);
    FIELD(els_logo_t, nport_wwn);
}

static void print_fc2_header(void)
{
    RECORD(fc2_iuhdr_t);
    FIELD(fc2_iuhdr_t, opcode);
    FIELD(fc2_iuhdr_t, flags);
    FIELD(fc2_iuhdr_t, length);
    FIELD(fc2_iuhdr_t, handle);
    FIELD(fc2_iuhdr_t, usrhandle);
    FIELD(fc2_iuhdr_t, status);
    FIELD(fc2_iuhdr_t, sof);
    FIELD(fc2_iuhdr_t, atype);
    FIELD(fc2_iuhdr_t, ttl);
    FIELD(fc2_iuhdr_t, reason);
    FIELD(fc2_iuhdr_t, reason.vendor_unique);
    FIELD(fc2_iuhdr_t, reason.reason_code_expl);
    FIELD(fc2_iuhdr_t, reason.reason_code);
    FIELD(fc2_iuhdr_t, reason.action);
    FIELD(fc2_iuhdr_t, sifindex);
    FIELD(fc2_iuhdr_t, slogifindex);
    FIELD(fc2_iuhdr_t, difindex);
    FIELD(fc2_iuhdr_t, sindex);
    FIELD(fc2_iuhdr_t, dindex);
    FIELD(fc2_iuhdr_t, ctl);
    FIELD(fc2_iuhdr_t, tstmp);
    FIELD(fc2_iuhdr_t, vsan);
    FIELD(fc2_iuhdr_t, seq_cnt);
    FIELD(fc2_iuhdr_t, s_id);
    FIELD(fc2_iuhdr_t, d_id);
    FIELD(fc2_iuhdr_t, ox_id);
    FIELD(fc2_iuhdr_t, rx_id);
    FIELD(fc2_iuhdr_t, usrpriority);
    FIELD(fc2_iuhdr_t, type);
    FIELD(fc2_iuhdr_t, err_policy);
    FIELD(fc2_iuhdr_t, cs);
    FIELD(fc2_iuhdr_t, seq_id);
    FIELD(fc2_iuhdr_t, r_ctl);
    FIELD(fc2_iuhdr_t, cs_ctl);
    FIELD(fc2_iuhdr_t, df_ctl);
    FIELD(fc2_iuhdr_t, f_ctl);
    FIELD(fc2_iuhdr_t, param);
    FIELD(fc2_iuhdr_t, hl);
    FIELD(fc2_iuhdr_t, sta);
    FIELD(fc2_iuhdr_t, replytimer);
    FIELD(fc2_iuhdr_t, eof);
    FIELD(fc2_iuhdr_t, mpls);
    FIELD(fc2_iuhdr_t, eth_tags);
    FIELD(fc2_iuhdr_t, eth_type);
    FIELD(fc2_iuhdr_t, src_mac);
    FIELD(fc2_iuhdr_t, dst_mac);
    FIELD(fc2_iuhdr_t, fcoe_flags);
    FIELD(fc2_iuhdr_t, flags2);
    FIELD(fc2_iuhdr_t, loggingdifindex);
    FIELD(fc2_iuhdr_t, reserved1);
    FIELD(fc2_iuhdr_t, reserved2);
}

static void print_secondary_ip(void)
{
    RECORD(opt_func_t);
    FIELD(opt_func_t, opt_add_ip);
    FIELD(opt_func_t, opt_del_ip);
    FIELD(opt_func_t, opt_intf_type);
    RECORD(mip_mapping_t);
    FIELD(mip_mapping_t, ip_addr);
    FIELD(mip_mapping_t, source_mac);
    FIELD(mip_mapping_t, add_data);
    FIELD(mip_mapping_t, ifindex);
    FIELD(mip_mapping_t, sifindex);
    FIELD(mip_mapping_t, next);
}

static void print_commands(void)
{
    printf("\ncommands\n");
    CODE(IPFC_IOC_RESERVED_0);
    CODE(IPFC_IOC_RESERVED_1);
    CODE(IPFC_IOC_RESERVED_2);
    CODE(IPFC_IOC_ADD_MAPPING);
    CODE(IPFC_IOC_DEL_MAPPING);
    CODE(IPFC_IOC_UPD_MAPPING);
    CODE(IPFC_IOC_MAPPING_NOT_FOUND);
    CODE(IPFC_IOC_GET_INTF);
    CODE(IPFC_IOC_GET_STATS);
    CODE(IPFC_IOC_CLEANUP);
    CODE(IPFC_IOC_CLEAR_STATS);
    CODE(IPFC_IOC_RESERVED_11);
    CODE(IPFC_IOC_ADD_IVRIP);
    CODE(IPFC_IOC_DEL_IVRIP);
    CODE(IPFC_IOC_CREATE_INTF);
    CODE(IPFC_IOC_DELETE_INTF);
    CODE(IPFC_IOC_UPDATE_INTF);
    CODE(IPFC_IOC_SET_IP);
    CODE(IPFC_IOC_GET_HEADROOM);
    printf("\nthe parts of 0xc0ac5008\n");
    VALUE(IPFC_IOC_DIR(IPFC_IOC_GET_STATS));
    VALUE(IPFC_IOC_SIZE(IPFC_IOC_GET_STATS));
    VALUE(IPFC_IOC_TYPE(IPFC_IOC_GET_STATS));
    VALUE(IPFC_IOC_NR(IPFC_IOC_GET_STATS));
    VALUE(IPFC_IOC_MAX_NR);
    VALUE(IPFC_IOC_WRITE);
    VALUE(IPFC_IOC_READ);
}

static void print_values(void)
{
    printf("\nvalues\n");
    VALUE(VSAN_ID_MAX);
    VALUE(INET_ADDR_TYPE_UNKNOWN);
    VALUE(INET_ADDR_TYPE_IPV4);
    VALUE(INET_ADDR_TYPE_IPV6);
    VALUE(IPFC_UPD_INTF_REM_FCID);
    VALUE(IPFC_UPD_INTF_SET_FCID);
    VALUE(IPFC_UPD_INTF_SET_ADM_UP);
    VALUE(IPFC_UPD_INTF_SET_ADM_DOWN);
    VALUE(IPFC_INTF_ADMIN_DOWN);
    VALUE(IPFC_INTF_ADMIN_UP);
    CODE(FCID_MASK_NUM);
    CODE(FCID_BROADCAST_NUM);
    VALUE(IVRIP_DID_LIST_MAX);
    VALUE(DBGTAP_FIRST_ELEMENT);
    VALUE(IPFC_HEADERS_LEN);
}

static void print_fc2_values(void)
{
    printf("\nFC-2 values\n");
    VALUE(AF_FC2);
    VALUE(SOL_FC2);
    VALUE(FC2_OPT_ADD_NPORT);
    VALUE(FC2_OPT_RM_NPORT);
    VALUE(FC2_OPT_NPORT);
    VALUE(FC2_OPT_RDL);
    VALUE(FC2_OP_MIN);
    VALUE(FC2_SEQUENCE);
    VALUE(FC2_ELS_PLOGI);
    VALUE(FC2_ELS_LOGO);
    VALUE(FC2_ELS_ABTX);
    VALUE(FC2_BLS_ABTS);
    VALUE(FC2_BLS_NOP);
    VALUE(FC2_TLPM_FRAME);
    VALUE(FC2_LC_FRAME);
    VALUE(FC2_ZS_FRAME);
    VALUE(FC2_LZ_FRAME);
    VALUE(FC2_ROZ_FRAME);
    VALUE(FC2_IVR_FRAME);
    VALUE(FC2_FC_REDIRECT_FRAME);
    VALUE(FC2_SDM_FRAME);
    VALUE(FC2_NPV_FRAME);
    VALUE(FC2_OP_MAX);
    CODE(FC2_RECEIVED_PLOGI);
    CODE(FC2_RECEIVED_LOGO);
    VALUE(FC2_EP_DISCARD_MULTI);
    VALUE(FC2_EP_DISCARD_SINGLE);
    VALUE(FC2_EP_PROCESS);
    VALUE(FC2_EP_DISCARD_RETRANS);
    VALUE(CLASS_INVALID);
    VALUE(CLASS_1);
    VALUE(CLASS_2);
    VALUE(CLASS_3);
    VALUE(CLASS_4);
    VALUE(CLASS_F);
    VALUE(FC2_OK);
    VALUE(FC2_F_RJT);
    VALUE(FC2_F_BSY);
    VALUE(FC2_P_BSY);
    VALUE(FC2_P_RJT);
    VALUE(FC2_TIMEOUT);
    VALUE(FC2_EDTOV_TIMEOUT);
    VALUE(FC2_ELS_RJT);
    VALUE(FC2_ABTX);
    VALUE(FC2_ABTS);
    VALUE(FC2_BLS_RJT);
    VALUE(FC2_MISSING_FRAME);
    VALUE(FC2_LOGO);
    VALUE(FC2_PLOGIN);
    VALUE(FC2_LCR);
    VALUE(FC2_ZONED_OUT);
    VALUE(FC2_ZONED_IN);
    VALUE(FC2_ERRNO);
    VALUE(FC2_RATOV_TIMEOUT);
}

int main(void)
{
    print_types();
    print_command_records();
    print_statistics_record();
    print_link_layer();
    print_fc2_bind_and_nport();
    print_fc2_header();
    print_secondary_ip();
    print_commands();
    print_values();
    print_fc2_values();
    return fflush(stdout) == 0 ? 0 : 1;
}
