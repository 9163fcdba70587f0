#include "pages/MenuTables.h"

const char main_menu_version_placeholder[] = "            ";

const char *main_menu_items[8] = {
    "SETUP", "TESTING", "INTENSITY", "EXIT", "", "REBOOT", "SHUTDOWN",
    main_menu_version_placeholder,
};

const char *const testing_menu_items[4] = {"SHAFTS", "KEYS", "GPIs", "LEDs"};

const char *const intensity_menu_items[2] = {"TFT Screen", "Buttons"};

const char *const setup_menu_items[9] = {
    "IP Addr", "Netmask", "Broadcast", "Gateway", "Font Size", "Dual PSU Mode", "",
    "Save Changes", "Revert Changes",
};
