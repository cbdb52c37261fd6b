#pragma once

// The udev rule that installations put in place, word for word: doctor hands it to those who have
// the program but not the rule (a build tree, a folder that udev does not look into).
const char* UdevRule();
