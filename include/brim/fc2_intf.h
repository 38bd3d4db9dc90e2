/* SPDX-License-Identifier: GPL-2.0-only */
/*
 * The FC-2 stack's kernel interface: bind address, information-unit header, N_Port registration,
 * and the calls. Multi-byte fields are in the processor's order; fcid_t and wwn_t are bytes.
 */
#pragma once

#include "types.h"

#define AF_FC2 25
#define FC2_BIND_ANY_VSAN 0xFFFF
#define FC2_ANY_IFINDEX 0xFFFFFFFFu

/* Bind filter: which information units a socket receives. */
struct sockaddr_fc2 {
    uint16_t sa_family;
    uint16_t vsan;
    uint32_t srcifindex;
    uint32_t srcifmask;
    fcid_t d_id;
    fcid_t d_idmask;
    uint8_t type; /* FC-4 type */
    uint8_t m_rule;
    uint8_t m_size; /* bytes of one match value */
    uint8_t nmatch; /* number of match values */
    uint16_t flags;
    uint16_t m_offset; /* payload offset at which values are matched */
    uint8_t m_values[100];
};
BRIM_STATIC_ASSERT(sizeof(struct sockaddr_fc2) == 128);
BRIM_LAYOUT(struct sockaddr_fc2, sa_family, 0, 2);
BRIM_LAYOUT(struct sockaddr_fc2, vsan, 2, 2);
BRIM_LAYOUT(struct sockaddr_fc2, srcifindex, 4, 4);
BRIM_LAYOUT(struct sockaddr_fc2, srcifmask, 8, 4);
BRIM_LAYOUT(struct sockaddr_fc2, d_id, 12, 4);
BRIM_LAYOUT(struct sockaddr_fc2, d_idmask, 16, 4);
BRIM_LAYOUT(struct sockaddr_fc2, type, 20, 1);
BRIM_LAYOUT(struct sockaddr_fc2, m_rule, 21, 1);
BRIM_LAYOUT(struct sockaddr_fc2, m_size, 22, 1);
BRIM_LAYOUT(struct sockaddr_fc2, nmatch, 23, 1);
BRIM_LAYOUT(struct sockaddr_fc2, flags, 24, 2);
BRIM_LAYOUT(struct sockaddr_fc2, m_offset, 26, 2);
BRIM_LAYOUT(struct sockaddr_fc2, m_values, 28, 100);

typedef union fc2_reason_ {
    uint32_t word;
    struct {
        uint8_t vendor_unique;
        uint8_t reason_code_expl;
        uint8_t reason_code;
        uint8_t action;
    };
} fc2_reason_t;
BRIM_STATIC_ASSERT(sizeof(fc2_reason_t) == 4);

typedef struct fc2_mpls_label_ {
    uint32_t ttl : 8;
    uint32_t stack : 1;
    uint32_t exp : 3;
    uint32_t label : 20;
} fc2_mpls_label_t;
BRIM_STATIC_ASSERT(sizeof(fc2_mpls_label_t) == 4);

/* Header of every information unit sent or received. */
typedef struct fc2_iuhdr_ {
    uint16_t opcode; /* fc2_opcode_t; a received ELS carries FC2_RECEIVED_ELS on top */
    uint16_t flags;
    int32_t length;  /* payload bytes, network header included */
    uint32_t handle; /* exchange handle */
    uint32_t usrhandle;
    uint8_t status; /* fc2_status_t */
    uint8_t sof;
    uint8_t atype;
    uint8_t ttl;
    fc2_reason_t reason;
    uint32_t sifindex;
    uint32_t slogifindex;
    uint32_t difindex;
    uint16_t sindex;
    uint16_t dindex;
    uint16_t ctl;
    uint16_t tstmp;
    uint16_t vsan;
    uint16_t seq_cnt;
    fcid_t s_id;
    fcid_t d_id;
    uint16_t ox_id;
    uint16_t rx_id;
    uint8_t usrpriority;
    uint8_t type;       /* FC-4 type */
    uint8_t err_policy; /* fc2_err_policy_t */
    uint8_t cs;         /* fc2_class_t */
    uint8_t seq_id;
    uint8_t r_ctl;
    uint8_t cs_ctl;
    uint8_t df_ctl;
    uint32_t f_ctl;
    fc2_reason_t param;
    uint8_t hl;
    uint8_t sta;
    uint8_t replytimer;
    uint8_t eof;
    fc2_mpls_label_t mpls[4];
    uint16_t eth_tags;
    uint16_t eth_type;
    uint8_t src_mac[6];
    uint8_t dst_mac[6];
    uint16_t fcoe_flags;
    uint16_t flags2;
    uint32_t loggingdifindex;
    uint32_t reserved1;
    uint32_t reserved2;
} fc2_iuhdr_t;
BRIM_STATIC_ASSERT(sizeof(fc2_iuhdr_t) == 128);
BRIM_LAYOUT(fc2_iuhdr_t, opcode, 0, 2);
BRIM_LAYOUT(fc2_iuhdr_t, flags, 2, 2);
BRIM_LAYOUT(fc2_iuhdr_t, length, 4, 4);
BRIM_LAYOUT(fc2_iuhdr_t, handle, 8, 4);
BRIM_LAYOUT(fc2_iuhdr_t, usrhandle, 12, 4);
BRIM_LAYOUT(fc2_iuhdr_t, status, 16, 1);
BRIM_LAYOUT(fc2_iuhdr_t, sof, 17, 1);
BRIM_LAYOUT(fc2_iuhdr_t, atype, 18, 1);
BRIM_LAYOUT(fc2_iuhdr_t, ttl, 19, 1);
BRIM_LAYOUT(fc2_iuhdr_t, reason, 20, 4);
BRIM_LAYOUT(fc2_iuhdr_t, sifindex, 24, 4);
BRIM_LAYOUT(fc2_iuhdr_t, slogifindex, 28, 4);
BRIM_LAYOUT(fc2_iuhdr_t, difindex, 32, 4);
BRIM_LAYOUT(fc2_iuhdr_t, sindex, 36, 2);
BRIM_LAYOUT(fc2_iuhdr_t, dindex, 38, 2);
BRIM_LAYOUT(fc2_iuhdr_t, ctl, 40, 2);
BRIM_LAYOUT(fc2_iuhdr_t, tstmp, 42, 2);
BRIM_LAYOUT(fc2_iuhdr_t, vsan, 44, 2);
BRIM_LAYOUT(fc2_iuhdr_t, seq_cnt, 46, 2);
BRIM_LAYOUT(fc2_iuhdr_t, s_id, 48, 4);
BRIM_LAYOUT(fc2_iuhdr_t, d_id, 52, 4);
BRIM_LAYOUT(fc2_iuhdr_t, ox_id, 56, 2);
BRIM_LAYOUT(fc2_iuhdr_t, rx_id, 58, 2);
BRIM_LAYOUT(fc2_iuhdr_t, usrpriority, 60, 1);
BRIM_LAYOUT(fc2_iuhdr_t, type, 61, 1);
BRIM_LAYOUT(fc2_iuhdr_t, err_policy, 62, 1);
BRIM_LAYOUT(fc2_iuhdr_t, cs, 63, 1);
BRIM_LAYOUT(fc2_iuhdr_t, seq_id, 64, 1);
BRIM_LAYOUT(fc2_iuhdr_t, r_ctl, 65, 1);
BRIM_LAYOUT(fc2_iuhdr_t, cs_ctl, 66, 1);
BRIM_LAYOUT(fc2_iuhdr_t, df_ctl, 67, 1);
BRIM_LAYOUT(fc2_iuhdr_t, f_ctl, 68, 4);
BRIM_LAYOUT(fc2_iuhdr_t, param, 72, 4);
BRIM_LAYOUT(fc2_iuhdr_t, hl, 76, 1);
BRIM_LAYOUT(fc2_iuhdr_t, sta, 77, 1);
BRIM_LAYOUT(fc2_iuhdr_t, replytimer, 78, 1);
BRIM_LAYOUT(fc2_iuhdr_t, eof, 79, 1);
BRIM_LAYOUT(fc2_iuhdr_t, mpls, 80, 16);
BRIM_LAYOUT(fc2_iuhdr_t, eth_tags, 96, 2);
BRIM_LAYOUT(fc2_iuhdr_t, eth_type, 98, 2);
BRIM_LAYOUT(fc2_iuhdr_t, src_mac, 100, 6);
BRIM_LAYOUT(fc2_iuhdr_t, dst_mac, 106, 6);
BRIM_LAYOUT(fc2_iuhdr_t, fcoe_flags, 112, 2);
BRIM_LAYOUT(fc2_iuhdr_t, flags2, 114, 2);
BRIM_LAYOUT(fc2_iuhdr_t, loggingdifindex, 116, 4);
BRIM_LAYOUT(fc2_iuhdr_t, reserved1, 120, 4);
BRIM_LAYOUT(fc2_iuhdr_t, reserved2, 124, 4);

typedef enum fc2_opcode_ {
    FC2_OP_MIN = 0,
    FC2_SEQUENCE = 1,
    FC2_ELS_PLOGI = 2,
    FC2_ELS_LOGO = 3,
    FC2_ELS_ABTX = 4,
    FC2_BLS_ABTS = 5,
    FC2_BLS_NOP = 6,
    FC2_TLPM_FRAME = 7,
    FC2_LC_FRAME = 8,
    FC2_ZS_FRAME = 9,
    FC2_LZ_FRAME = 10,
    FC2_ROZ_FRAME = 11,
    FC2_IVR_FRAME = 12,
    FC2_FC_REDIRECT_FRAME = 13,
    FC2_SDM_FRAME = 14,
    FC2_NPV_FRAME = 15,
    FC2_OP_MAX = 16,
} fc2_opcode_t;

/* Set on top of the opcode of a received extended link service. */
#define FC2_RECEIVED_ELS 0x400
#define FC2_RECEIVED_PLOGI (FC2_RECEIVED_ELS | FC2_ELS_PLOGI)
#define FC2_RECEIVED_LOGO (FC2_RECEIVED_ELS | FC2_ELS_LOGO)

/* fc2_iuhdr_t.flags: leave through trunking (TE) ports only. */
#define FC2_IU_TE_ONLY 0x1000

typedef enum fc2_err_policy_ {
    FC2_EP_DISCARD_MULTI = 0,
    FC2_EP_DISCARD_SINGLE = 1,
    FC2_EP_PROCESS = 2,
    FC2_EP_DISCARD_RETRANS = 3,
} fc2_err_policy_t;

typedef enum fc2_class_ {
    CLASS_INVALID = 0,
    CLASS_1 = 1,
    CLASS_2 = 2,
    CLASS_3 = 3,
    CLASS_4 = 4,
    CLASS_F = 5,
} fc2_class_t;

typedef enum fc2_atype_ {
    AT_FC = 0,
} fc2_atype_t;

typedef enum fc2_status_ {
    FC2_OK = 0,
    FC2_F_RJT = 1,
    FC2_F_BSY = 2,
    FC2_P_BSY = 3,
    FC2_P_RJT = 4,
    FC2_TIMEOUT = 5,
    FC2_EDTOV_TIMEOUT = 5,
    FC2_ELS_RJT = 6,
    FC2_ABTX = 7,
    FC2_ABTS = 8,
    FC2_BLS_RJT = 9,
    FC2_MISSING_FRAME = 10,
    FC2_LOGO = 11,
    FC2_PLOGIN = 12,
    FC2_LCR = 13,
    FC2_ZONED_OUT = 14,
    FC2_ZONED_IN = 15,
    FC2_ERRNO = 16,
    FC2_RATOV_TIMEOUT = 17,
} fc2_status_t;

/* FC-4 type, R_CTL, DF_CTL and F_CTL of IP over FC (RFC 2625, FC-FS frame header). */
#define FC_TYPE_IP 5
#define FC_RCTL_UNSOLICITED_DATA 0x04
#define FC_DFCTL_NETWORK_HEADER 0x20
#define FC2_FCTL_FIRST_SEQUENCE 0x200000
#define FC2_FCTL_FIRST_LAST_SEQUENCE 0x300000

/* Common service parameters of a PLOGI. */
typedef struct els_common_ {
    uint16_t fcph;
    uint16_t buf2buf_credit;
    uint16_t common_features;
    uint16_t buf2buf_size;
    uint16_t total_concurrent;
    uint16_t off_by_info;
    uint32_t e_d_tov;
} els_common_t;
BRIM_STATIC_ASSERT(sizeof(els_common_t) == 16);
BRIM_LAYOUT(els_common_t, fcph, 0, 2);
BRIM_LAYOUT(els_common_t, buf2buf_credit, 2, 2);
BRIM_LAYOUT(els_common_t, common_features, 4, 2);
BRIM_LAYOUT(els_common_t, buf2buf_size, 6, 2);
BRIM_LAYOUT(els_common_t, total_concurrent, 8, 2);
BRIM_LAYOUT(els_common_t, off_by_info, 10, 2);
BRIM_LAYOUT(els_common_t, e_d_tov, 12, 4);

/* Service parameters of one class. */
typedef struct els_class_ {
    uint16_t serv_opts;
    uint16_t initiator_ctl;
    uint16_t rcpt_ctl;
    uint16_t recv_size;
    uint16_t concurrent_seqs;
    uint16_t end2end_credit;
    uint16_t open_seqs_per_xchg;
    uint16_t cls6mc_rxid;
} els_class_t;
BRIM_STATIC_ASSERT(sizeof(els_class_t) == 16);
BRIM_LAYOUT(els_class_t, serv_opts, 0, 2);
BRIM_LAYOUT(els_class_t, initiator_ctl, 2, 2);
BRIM_LAYOUT(els_class_t, rcpt_ctl, 4, 2);
BRIM_LAYOUT(els_class_t, recv_size, 6, 2);
BRIM_LAYOUT(els_class_t, concurrent_seqs, 8, 2);
BRIM_LAYOUT(els_class_t, end2end_credit, 10, 2);
BRIM_LAYOUT(els_class_t, open_seqs_per_xchg, 12, 2);
BRIM_LAYOUT(els_class_t, cls6mc_rxid, 14, 2);

typedef struct els_plogi_ {
    uint32_t code;
    els_common_t common;
    wwn_t nport_wwn;
    wwn_t node_wwn;
    els_class_t class1;
    els_class_t class2;
    els_class_t class3;
    els_class_t class4;
    uint8_t vendorversion[16];
} BRIM_RECORD els_plogi_t;
BRIM_STATIC_ASSERT(sizeof(els_plogi_t) == 116);
BRIM_LAYOUT(els_plogi_t, code, 0, 4);
BRIM_LAYOUT(els_plogi_t, common, 4, 16);
BRIM_LAYOUT(els_plogi_t, nport_wwn, 20, 8);
BRIM_LAYOUT(els_plogi_t, node_wwn, 28, 8);
BRIM_LAYOUT(els_plogi_t, class1, 36, 16);
BRIM_LAYOUT(els_plogi_t, class2, 52, 16);
BRIM_LAYOUT(els_plogi_t, class3, 68, 16);
BRIM_LAYOUT(els_plogi_t, class4, 84, 16);
BRIM_LAYOUT(els_plogi_t, vendorversion, 100, 16);

/* els_common_t.common_features, set by every N_Port that IP over FC registers. */
#define FC2_COMMON_FEATURE_IPFC 0x0200

/* Payload of a LOGO: the N_Port that logs out. */
typedef struct els_logo_ {
    uint32_t code;
    fcid_t s_id;
    wwn_t nport_wwn;
} BRIM_RECORD els_logo_t;
BRIM_STATIC_ASSERT(sizeof(els_logo_t) == 16);
BRIM_LAYOUT(els_logo_t, code, 0, 4);
BRIM_LAYOUT(els_logo_t, s_id, 4, 4);
BRIM_LAYOUT(els_logo_t, nport_wwn, 8, 8);

/* Value of the socket options that add and remove an N_Port. */
typedef struct fc2_opt_nport_ {
    uint16_t flags;
    uint16_t vsan;
    fcid_t d_id;
    uint32_t d_idmask;
    if_index_t ifindex;
    els_plogi_t plogi;
    uint32_t proxy_did;
} fc2_opt_nport_t;
BRIM_STATIC_ASSERT(sizeof(fc2_opt_nport_t) == 136);
BRIM_LAYOUT(fc2_opt_nport_t, flags, 0, 2);
BRIM_LAYOUT(fc2_opt_nport_t, vsan, 2, 2);
BRIM_LAYOUT(fc2_opt_nport_t, d_id, 4, 4);
BRIM_LAYOUT(fc2_opt_nport_t, d_idmask, 8, 4);
BRIM_LAYOUT(fc2_opt_nport_t, ifindex, 12, 4);
BRIM_LAYOUT(fc2_opt_nport_t, plogi, 16, 116);
BRIM_LAYOUT(fc2_opt_nport_t, proxy_did, 132, 4);

#define FC2_NPORT_ADD_FLAGS 10

/* Socket option level and names. */
#define SOL_FC2 267
typedef enum fc2_option_ {
    FC2_OPT_ADD_NPORT = 1,
    FC2_OPT_RM_NPORT = 2,
    FC2_OPT_NPORT = 3,
    FC2_OPT_RDL = 61,
} fc2_option_t;

#ifdef __cplusplus
extern "C" {
#endif

struct socket;
struct sk_buff;

/*
 * Called in softirq context, once for each information unit that has arrived; nbytes is its length.
 * The result is ignored.
 */
typedef int (*fc2_data_ready_t)(struct socket* sock, int nbytes);

/* Process context. 0, or a negative error number; on 0 *sock is the new socket. */
int kfc2_sock_create(int arg, struct socket** sock, fc2_data_ready_t data_ready);

/* Restricts what the socket receives to the record; negative on failure. */
int kfc2_sock_bind(struct socket* sock, struct sockaddr_fc2* addr, int length);

/*
 * Adds or removes an N_Port; the value is an fc2_opt_nport_t. 0, or a negative error number: -17
 * the address is registered already, -28 the table is full, -99 the address is not registered by
 * this socket, -22 no address that an N_Port can have.
 */
int kfc2_setsockopt(struct socket* sock, int level, int option, void* value, int length);

/*
 * Hands over the next information unit; any context that may not sleep. The header is copied out,
 * *skb starts with the payload (the network header of a data sequence) and is the caller's.
 * The byte count, or negative.
 */
int kfc2_recvskb(struct socket* sock, fc2_iuhdr_t* header, struct sk_buff** skb);

/*
 * Sends skb as one sequence with the header's addressing and owns skb from the call on. Callable
 * with interrupts off; never sleeps. The exchange handle, or a negative error: -111 the peer
 * refused the login, -113 nobody answers for the address.
 */
int kfc2_sendskb(struct socket* sock, fc2_iuhdr_t* header, struct sk_buff* skb);

/* Sends a LOGO from the own N_Port s_id to d_id. Never sleeps. */
int kfc2_send_logo(struct socket* sock, uint16_t vsan, fcid_t s_id, fcid_t d_id, int arg1, int arg2,
                   int arg3, uint32_t arg4);

/* Process context. No data-ready callback runs once this has returned. */
void kfc2_sock_close(struct socket* sock);

/* Fills in default login parameters. */
void fc2_default_plogi(els_plogi_t* plogi);

/* Bytes that the stack needs in front of and behind a payload. */
int fc2_get_hdr_reserve(void);
int fc2_get_tlrlen(void);

/*
 * The VSAN of a platform interface (ifindex.h): 0 and *vsan in 0..4095, or an error number, which
 * is positive.
 */
int if_index_vsan_get_vsan(if_index_t ifindex, vsan_id_t* vsan);

#ifdef __cplusplus
}
#endif
