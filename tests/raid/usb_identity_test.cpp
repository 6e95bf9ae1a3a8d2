// The USB identity of a disk from its sysfs ancestry, and the devices that need special handling.
#include <filesystem>
#include <string>

#include "kovasdk/error.h"
#include "kovasdk/partition.h"
#include "support/sandbox.h"

namespace kova::test {
namespace {

class UsbIdentity : public SandboxTest {
  protected:
    // A USB disk: the SCSI device below the USB device that carries the identity.
    void usb_disk(const std::string &name, const std::string &vendor, const std::string &product) {
        const std::string usb = "/sys/devices/pci0000:00/0000:00:14.0/usb1/1-" + name;
        const std::string scsi = usb + "/1-1:1.0/host6/target6:0:0/6:0:0:0";
        std::filesystem::create_directories(path(scsi));
        std::filesystem::create_directories(path("/sys/block/" + name));
        write_file(path(usb + "/idVendor"), vendor + "\n");
        write_file(path(usb + "/idProduct"), product + "\n");
        write_file(path(usb + "/product"), "Portable Disk\n");
        write_file(path(usb + "/serial"), "SN42\n");
        std::filesystem::create_symlink("../../devices/pci0000:00/0000:00:14.0/usb1/1-" + name +
                                            "/1-1:1.0/host6/target6:0:0/6:0:0:0",
                                        path("/sys/block/" + name + "/device"));
    }
};

TEST_F(UsbIdentity, ReadFromTheUsbDeviceAbove) {
    usb_disk("sdk", "05ac", "1202");
    usb_disk("sdl", "05ac", "1300");
    usb_disk("sdm", "05ac", "1234");
    usb_disk("sdn", "0781", "1202");
    KOVAUSBDEVINFO info;
    ASSERT_EQ(0, KOVAUSBDevGetInfo("/dev/sdk", &info));
    EXPECT_EQ(0x05ACu, info.vendor);
    EXPECT_EQ(0x1202u, info.product);
    EXPECT_STREQ("Portable Disk", info.szProduct);
    EXPECT_STREQ("SN42", info.szSerial);
    EXPECT_STREQ("", info.szManufacturer);
    EXPECT_EQ(2, KOVACheckSpecialDevice("/dev/sdk"));
    EXPECT_EQ(0, KOVACheckSpecialDevice("sdl"));
    EXPECT_EQ(-1, KOVACheckSpecialDevice("/dev/sdm")) << "that vendor, another product";
    EXPECT_EQ(-1, KOVACheckSpecialDevice("/dev/sdn")) << "another vendor";
    EXPECT_EQ(-1, KOVACheckSpecialDevice("/dev/sdz")) << "no such disk";

    // A disk with no USB device above it (a SATA disk).
    std::filesystem::create_directories(
        path("/sys/devices/pci0000:00/ata1/host0/target0:0:0/0:0:0:0"));
    std::filesystem::create_directories(path("/sys/block/sda"));
    std::filesystem::create_symlink("../../devices/pci0000:00/ata1/host0/target0:0:0/0:0:0:0",
                                    path("/sys/block/sda/device"));
    EXPECT_EQ(-1, KOVAUSBDevGetInfo("/dev/sda", &info));
    EXPECT_TRUE(raised(ERR_NO_DISK_ID));
}

}  // namespace
}  // namespace kova::test
