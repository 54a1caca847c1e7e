#pragma once

#include "formats/mcap/Records.h"

#include <string>
#include <string_view>

/// Records as bytes. Every function appends one whole record.
namespace gk::formats::mcap {

/// Bytes behind the length of a message's record that are not its data.
constexpr std::size_t kMessageHead = 2 + 4 + 8 + 8;

void appendHeader(std::string& out, std::string_view profile, std::string_view library);
void appendSchema(std::string& out, const Schema& schema);
void appendChannel(std::string& out, const Channel& channel);
void appendMessage(std::string& out, const Message& message);
/// The chunk's record as far as its records, which follow at once: `head.compressedSize` bytes.
void appendChunkHead(std::string& out, const ChunkHead& head);
void appendMessageIndex(std::string& out, const MessageIndex& index);
void appendChunkIndex(std::string& out, const ChunkIndex& index);
/// With its CRC; `attachment.crc` is not used.
void appendAttachment(std::string& out, const Attachment& attachment);
/// `offset` and `length`: the attachment's record in the file.
void appendAttachmentIndex(std::string& out, const Attachment& attachment, std::uint64_t offset,
                           std::uint64_t length);
void appendStatistics(std::string& out, const Statistics& statistics);
void appendMetadata(std::string& out, const Metadata& metadata);
void appendMetadataIndex(std::string& out, std::string_view name, std::uint64_t offset,
                         std::uint64_t length);
void appendSummaryOffset(std::string& out, Opcode group, std::uint64_t start, std::uint64_t length);
void appendDataEnd(std::string& out, std::uint32_t crc);
/// The footer as far as its CRC, which is the record's last four bytes.
void appendFooterHead(std::string& out, const Footer& footer);

} // namespace gk::formats::mcap
