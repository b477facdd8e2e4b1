// The Gobi family: LTE and CDMA modems that speak QMI, reached through QMUXD.
#pragma once

struct cellmodem;

// Fills the record with this family's operations. Always 0.
int gobi_init(cellmodem &modem);
