// The other end of a link, as a kernel would use it: records by their bytes.
#ifndef ZR_TESTS_LINK_HOST_H
#define ZR_TESTS_LINK_HOST_H

#include <poll.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

using Bytes = std::vector<std::uint8_t>;

inline void AppendBig(Bytes& to, std::uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8) {
        to.push_back(static_cast<std::uint8_t>(value >> shift));
    }
}

inline std::uint32_t BigAt(const Bytes& bytes, std::size_t at)
{
    return static_cast<std::uint32_t>(bytes[at]) << 24 |
           static_cast<std::uint32_t>(bytes[at + 1]) << 16 |
           static_cast<std::uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

constexpr std::uint32_t kOut = 0;
constexpr std::uint32_t kIn = 1;

struct Answer
{
    std::uint32_t command = 0;
    std::uint32_t sequence = 0;
    std::int32_t status = 0;
    std::uint32_t actual = 0;
    Bytes header;
    Bytes data;
};

class LinkHost
{
public:
    explicit LinkHost(int socket) : m_socket(socket) {}

    void SendRaw(const Bytes& bytes) const
    {
        ASSERT_EQ(::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }

    static Bytes SubmitRecord(std::uint32_t sequence, std::uint32_t direction,
                              std::uint32_t endpoint, std::uint32_t length, std::uint32_t flags = 0,
                              const Bytes& setup = Bytes(8))
    {
        Bytes record;
        for (const std::uint32_t word :
             {1U, sequence, 0x00010002U, direction, endpoint, flags, length, 0U, 0xFFFFFFFFU, 0U}) {
            AppendBig(record, word);
        }
        record.insert(record.end(), setup.begin(), setup.end());
        return record;
    }
    void SubmitIn(std::uint32_t sequence, std::uint32_t endpoint, std::uint32_t length,
                  std::uint32_t flags = 0) const
    {
        SendRaw(SubmitRecord(sequence, kIn, endpoint, length, flags));
    }
    void SubmitOut(std::uint32_t sequence, std::uint32_t endpoint, const Bytes& data) const
    {
        Bytes record =
            SubmitRecord(sequence, kOut, endpoint, static_cast<std::uint32_t>(data.size()));
        record.insert(record.end(), data.begin(), data.end());
        SendRaw(record);
    }
    void ReadDeviceDescriptor(std::uint32_t sequence, std::uint8_t length) const
    {
        SendRaw(SubmitRecord(sequence, kIn, 0, length, 0, {0x80, 6, 0, 1, 0, 0, length, 0}));
    }
    void Unlink(std::uint32_t sequence, std::uint32_t wanted) const
    {
        Bytes record;
        for (const std::uint32_t word : {2U, sequence, 0x00010002U, 0U, 0U, wanted}) {
            AppendBig(record, word);
        }
        record.resize(48);
        SendRaw(record);
    }

    Bytes ReadRaw(std::size_t size) const
    {
        Bytes bytes(size);
        timeval limit{5, 0};
        ::setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        if (size != 0 &&
            ::recv(m_socket, bytes.data(), size, MSG_WAITALL) != static_cast<ssize_t>(size)) {
            ADD_FAILURE() << "the answer does not come";
        }
        return bytes;
    }
    // "hasData": the answer to a request for data; its length counts what follows.
    Answer Read(bool hasData = true) const
    {
        Answer answer;
        answer.header = ReadRaw(48);
        answer.command = BigAt(answer.header, 0);
        answer.sequence = BigAt(answer.header, 4);
        answer.status = static_cast<std::int32_t>(BigAt(answer.header, 20));
        answer.actual = BigAt(answer.header, 24);
        if (hasData && answer.command == 3) {
            answer.data = ReadRaw(answer.actual);
        }
        return answer;
    }
    bool IsSilent(int ms = 60) const
    {
        pollfd entry{m_socket, POLLIN, 0};
        return ::poll(&entry, 1, ms) == 0;
    }
    bool IsClosed() const
    {
        pollfd entry{m_socket, POLLIN, 0};
        char byte = 0;
        return ::poll(&entry, 1, 5000) == 1 && ::recv(m_socket, &byte, 1, 0) <= 0;
    }

private:
    int m_socket;
};

#endif
