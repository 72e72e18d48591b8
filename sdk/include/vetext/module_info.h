/* vetext SDK: what a module says about itself before it is set up.
 *
 * A host lists an effect (its name, the category it sits in) without running any of its code, so
 * a module carries that description as data: an ELF note in the module file, in a loadable
 * PT_NOTE segment, with the owner name kModuleInfoNoteOwner and the type kModuleInfoNoteType.
 * Its descriptor is a sequence of "key=value" strings, each zero-terminated. Keys:
 *   "name"      the display name as a string resource key; the English name is the text after
 *               the key's last '=' (the host's string look-up may localise it)
 *   "category"  where hosts list the effect, e.g. "Video"
 * Unknown keys are ignored. Hosts must bound every read by the note's own sizes and the segment
 * that holds it. VX_MODULE_INFO declares the note in the module's own object (not in a static
 * library, whose unreferenced members the linker leaves out).
 */
#ifndef VETEXT_MODULE_INFO_H
#define VETEXT_MODULE_INFO_H

#include <stdint.h>

#define kModuleInfoNoteOwner "vetext"
#define kModuleInfoNoteType 0x56584d31u /* "VXM1" */

/* INFO: a string literal of "key=value\0key=value" entries. */
#define VX_MODULE_INFO(INFO)                                                            \
  static const struct {                                                                 \
    uint32_t namesz, descsz, type;                                                      \
    char name[(sizeof kModuleInfoNoteOwner + 3) & ~3u];                                 \
    char desc[(sizeof INFO + 3) & ~3u];                                                 \
  } vx_module_info_note __attribute__((section(".note.vetext.info"), used, aligned(4))) = { \
      sizeof kModuleInfoNoteOwner, sizeof INFO, kModuleInfoNoteType, kModuleInfoNoteOwner, INFO}

#endif /* VETEXT_MODULE_INFO_H */
