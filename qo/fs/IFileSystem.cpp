#include "qo/fs/IFileSystem.h"

namespace qo {

IFileSystem::CNativeMetaData::CNativeMetaData(String const& format, P<TBuffer<unsigned char>> const& data)
    : m_format(format), m_data(data ? data : newP<TBuffer<unsigned char>>()) {}

IFileSystem::CNativeMetaData::CNativeMetaData(String const& format, void const* bytes, long long size)
    : m_format(format), m_data(newP<TBuffer<unsigned char>>(static_cast<unsigned char const*>(bytes), size)) {}

IFileSystem::CNativeMetaData::~CNativeMetaData() = default;

IFileSystem::~IFileSystem() = default;

}  // namespace qo
