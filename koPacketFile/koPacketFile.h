// The whole packet-file library.
#pragma once

#include "koPacketFile/byte_stream.h"
#include "koPacketFile/crc32c.h"
#include "koPacketFile/encoding.h"
#include "koPacketFile/packet_reader.h"
#include "koPacketFile/packet_registry.h"
#include "koPacketFile/read_context.h"
#include "koPacketFile/record_reader.h"
#include "koPacketFile/report.h"
#include "koPacketFile/value_reader.h"
#include "koPacketFile/write_context.h"
