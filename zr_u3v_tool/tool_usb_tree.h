#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

// A USB3 Vision camera as the kernel knows it.
struct UsbCamera
{
    std::string name; // "2-1.4"
    std::string vendorId;
    std::string productId;
    std::string manufacturer;
    std::string product;
    std::string serial;
    unsigned speed = 0;         // Mbit/s as negotiated; 0 when unknown
    std::filesystem::path node; // /dev/bus/usb/BBB/DDD
    // A camera's USB3 Vision interface with the driver that holds it; none when it is free.
    struct Interface
    {
        std::string name; // "2-1.4:1.0"
        std::string driver;
    };
    std::vector<Interface> interfaces;
};

// A process that has a device node open.
struct Holder
{
    long pid = 0;
    std::string command;
};

// What the operating system tells of cameras, read below `root` ("/" but for tests).
class UsbTree
{
public:
    // `canOpen` tells whether this user may read and write a file; access(2) but for tests.
    explicit UsbTree(std::filesystem::path root,
                     std::function<bool(const std::filesystem::path&)> canOpen = nullptr);

    bool IsThere() const;
    std::vector<UsbCamera> Cameras() const;
    bool Exists(const std::filesystem::path& node) const;
    bool MayOpen(const std::filesystem::path& node) const;
    // Other processes with the node open, as far as this user may see them.
    std::vector<Holder> Holders(const std::filesystem::path& node) const;
    // MiB that all USB transfers of user space may take together; 0 is no limit.
    std::optional<unsigned long> UsbfsMemory() const;
    // The rules file that gives users access to USB3 Vision cameras; empty when there is none.
    std::string RuleFile() const;

private:
    std::filesystem::path _below(const std::filesystem::path& absolute) const;

    std::filesystem::path m_root;
    std::function<bool(const std::filesystem::path&)> m_canOpen;
};
