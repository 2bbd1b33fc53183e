/// @file kxutil.h
/// The utility layer under qlnutil: memory, files, the configuration store, diagnostics, fourcc classes and
/// text encoders, as plain C functions.
///
/// libqlnutil imports every operation here by its plain name through the dynamic linker and never absorbs it.
/// A host may therefore bring its own: define the functions of a whole group (KXAlloc with KXFree; all file
/// calls; all kxCFG calls; the diagnostics) with these signatures in the executable, and they are called in
/// place of ours, also from inside libkxutil. The declarations carry default visibility, so this holds for a
/// host that is itself built with hidden visibility.
///
/// Threads: every function may be called from several threads at once; a file handle or a named store belongs
/// to one thread at a time, the default store to all of them.
#ifndef KXUTIL_KXUTIL_H
#define KXUTIL_KXUTIL_H

#include <stddef.h>
#include <stdint.h>

/// The mark of an exported name.
#define KX_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Memory ------------------------------------------------------------------------------------------- */

/// Allocates @p size bytes (0 counts as 1), aligned for any type. The contents are not set.
/// @return the block, owned by the caller and released with KXFree only; null when there is no memory.
KX_API void* KXAlloc(size_t size);

/// Frees a block of KXAlloc. Null is allowed and does nothing.
KX_API void KXFree(void* block);

/// Tells how many bytes a block of KXAlloc was asked for.
/// The answer comes from the allocator's own table; memory in front of the block is never read.
/// @return the size in bytes (1 for a request of 0), or 0 for null and for a pointer that is no live block of
/// KXAlloc.
KX_API size_t KXAllocSize(const void* block);

/// Copies @p count bytes between blocks that do not overlap. A count of 0 touches nothing.
KX_API void CopyMemoryFast(void* destination, const void* source, uint32_t count);

/// Fills @p count bytes with zero. A count of 0 touches nothing.
KX_API void ZeroMemoryFast(void* destination, uint32_t count);

/// The same as CopyMemoryFast; both names are in use.
KX_API void kxOSCopyMemory(void* destination, const void* source, uint32_t count);

/// The same as ZeroMemoryFast; both names are in use.
KX_API void kxOSZeroMemory(void* destination, uint32_t count);

/* ---- Files -------------------------------------------------------------------------------------------- */

/// A file handle: pointer-sized, the descriptor plus 1. 0 is no handle.
typedef intptr_t KXFileHandle;

/// What kxOSCreateFile gives where no file was opened.
#define KX_INVALID_FILE_HANDLE ((KXFileHandle)-1)

#define KX_ACCESS_READ 0x80000000u  /**< kxOSCreateFile: the file is read */
#define KX_ACCESS_WRITE 0x40000000u /**< kxOSCreateFile: the file is written */
#define KX_SHARE_READ 1u            /**< kxOSCreateFile: others may read it meanwhile */
#define KX_CREATE_NEW 1u            /**< kxOSCreateFile: a new file, or none */
#define KX_OPEN_EXISTING 3u         /**< kxOSCreateFile: a file that exists, or none */

/* The platform error codes that callers meet; all others are errno as it stands. */
#define KX_ERROR_INVALID_PARAMETER 22u /**< an argument that is not allowed */
#define KX_ERROR_INVALID_HANDLE 9u     /**< a handle that is none */

/// Opens a file in one of two forms: (KX_ACCESS_READ, KX_SHARE_READ, KX_OPEN_EXISTING) reads a file that
/// exists; (KX_ACCESS_WRITE, KX_SHARE_READ, KX_CREATE_NEW) makes a new one and fails if the name is taken.
/// @param path NUL-terminated path. @param access, share, disposition one of the two forms.
/// @param security, flags, file_template 0.
/// @return a handle for kxOSCloseFile, owned by the caller, or KX_INVALID_FILE_HANDLE; the last error then
/// says why. A null path and any other combination of values are refused with KX_ERROR_INVALID_PARAMETER, and
/// a folder does not open.
KX_API KXFileHandle kxOSCreateFile(const char* path, uint32_t access, uint32_t share, void* security,
                                   uint32_t disposition, uint32_t flags, void* file_template);

/// Closes a handle, which is gone whatever the result. @return non-zero on success; 0 with
/// KX_ERROR_INVALID_HANDLE for a value that is no open handle.
KX_API int32_t kxOSCloseFile(KXFileHandle handle);

/// Reads up to @p count bytes at the file position, going on until the count, the end of the file or an
/// error. Interrupted calls are resumed.
/// @param handle open for reading. @param count bytes.
/// @param[out] buffer room for @p count bytes; null is allowed with a count of 0 only.
/// @param[out] bytes_read bytes put into @p buffer, also on an error; may be null. @param overlapped 0.
/// @return non-zero on success; a read that the end of the file cuts short is a success and leaves the last
/// error 0.
KX_API int32_t kxOSReadFile(KXFileHandle handle, void* buffer, uint32_t count, uint32_t* bytes_read,
                            void* overlapped);

/// Writes @p count bytes at the file position, going on until the count or an error. Interrupted calls are
/// resumed. @param handle open for writing. @param buffer @p count bytes; null is allowed with a count of 0
/// only. @param count bytes. @param overlapped 0. @param[out] bytes_written bytes that went out, also on an
/// error; may be null.
/// @return non-zero on success.
KX_API int32_t kxOSWriteFile(KXFileHandle handle, const void* buffer, uint32_t count, uint32_t* bytes_written,
                             void* overlapped);

/// Moves the file position to the absolute byte @p offset. @return the position reached; all ones on failure.
KX_API uint64_t kxOSSeek(KXFileHandle handle, uint64_t offset);

/// @return the low 32 bits of the file's size in bytes; 0xFFFFFFFF on failure. @param handle an open handle.
/// @param high 0; not looked at.
KX_API uint32_t kxOSGetFileSize(KXFileHandle handle, void* high);

/// Stores the file's size in bytes. @return non-zero on success; 0 on failure (no open handle, a null
/// @p size), and then @p size stays as it was.
KX_API int32_t kxOSGetFileSizeEx(KXFileHandle handle, uint64_t* size);

/// @return non-zero if something of that name exists; 0 for null and for the empty path.
KX_API int32_t kxOSFileExists(const char* path);

/// @return the error code (errno values) of the calling thread's last file operation, that is of the calls
/// from kxOSCreateFile to kxOSFileExists; 0 after a success.
KX_API uint32_t kxOSGetLastError(void);

/// @return milliseconds of a monotonic clock, wrapping at 32 bits.
KX_API uint32_t kxOSGetMs(void);

#define KX_DRIVE_SIZE 3       /**< kxOSSplitPath: bytes of a drive, with its colon and terminator */
#define KX_DIRECTORY_SIZE 256 /**< kxOSSplitPath: bytes of a directory */
#define KX_NAME_SIZE 256      /**< kxOSSplitPath: bytes of a name */
#define KX_EXTENSION_SIZE 256 /**< kxOSSplitPath: bytes of an extension */
#define KX_PATH_SIZE 260      /**< kxOSMakePath: bytes of a path */

/// Splits a path at its drive letter, last separator and last dot. Both '/' and '\' separate, whatever the
/// system, since projects travel. The directory keeps its last separator and the extension its dot, so that
/// kxOSMakePath is the reverse.
/// @param path NUL-terminated. @param[out] drive, directory, name, extension text buffers of 3, 256, 256 and
/// 256 bytes; any may be null. A piece that does not fit is cut to what fits, with its terminator. A null
/// path has four empty pieces.
KX_API void kxOSSplitPath(const char* path, char* drive, char* directory, char* name, char* extension);

/// Puts a path together again. @param[out] path buffer of 260 bytes; a longer path is cut to 259 characters.
/// @param drive, directory, name, extension pieces as kxOSSplitPath gives them; any may be null or empty, and
/// any may lie in @p path itself. Of the drive the first letter counts. A missing colon behind the drive, a
/// missing separator behind the directory (of the kind that the directory has, else '/') and a missing dot in
/// front of the extension are supplied.
KX_API void kxOSMakePath(char* path, const char* drive, const char* directory, const char* name,
                         const char* extension);

/// Gives up the processor for at least @p milliseconds.
KX_API void Sleep(uint32_t milliseconds);

/// (number x numerator) / denominator in 64 bits, rounded to the nearest, halves away from zero.
/// @return the result, or -1 where it does not fit into 32 bits or the denominator is 0.
KX_API int32_t MulDiv(int32_t number, int32_t numerator, int32_t denominator);

/* ---- Configuration store ------------------------------------------------------------------------------ */

/// A store handle, pointer-sized. 0 is failure. A trouble with a store (it cannot be opened, read or written)
/// is told once through ErrOut, not at every call.
typedef intptr_t KXConfigHandle;

/// The process-wide default store; never opened or closed.
///
/// It stands in a database file that is never changed in place: a change writes a new file, flushes it, and
/// puts it in the old one's place, so that a reader never waits, a copy of the file is whole at any moment,
/// and a process that is killed leaves the old values or the new ones. Writers wait for each other, for half
/// a minute at most. Other tools may read the file, but should not keep it open. A file that the caller may
/// only read is not replaced.
///
/// A value that is damaged counts as absent, with one message. A store that could not be read for another
/// reason than an absent key takes no changes from this process until a read of it has succeeded: they fail.
/// A change that finds the store damaged beyond single values renames it to a name with ".damaged-" and the
/// time, with one message, and goes into a new store; but where a read of this process has met the damage, it
/// fails, and the next change begins the new store. What was changed before the damage showed stands in the
/// file that was renamed.
#define KX_DEFAULT_STORE ((KXConfigHandle)-1)

/* How kxCFGOpen opens; there is one way. */
#define KX_CONFIG_OPEN 0u /**< the one way to open a store */

/* What kxCFGValueDword and kxCFGValueString do. */
#define KX_CONFIG_READ 0u  /**< the value is read */
#define KX_CONFIG_WRITE 1u /**< the value is written */

/* What kxCFGClose does with the changes. */
#define KX_CONFIG_DISCARD 0u /**< changes are dropped */
#define KX_CONFIG_SAVE 1u    /**< changes are written */

/// Opens the store that stands in a file such as "UserMetadata.xml". A missing file opens as an empty store.
/// Changes stay in memory until kxCFGClose.
/// @param name a file name, copied; a relative one counts from the working folder of this call, also for the
/// save. @param reserved KX_CONFIG_OPEN; not looked at.
/// @return a handle for kxCFGClose; 0 for a file that is no such store (with a message; the file is never
/// overwritten) and for a null or empty name.
KX_API KXConfigHandle kxCFGOpen(const char* name, uint32_t reserved);

/// Closes a store; the handle is gone whatever the result. With KX_CONFIG_SAVE (any value but 0) its changed
/// keys are applied to the file as it is by then, under a lock, and the file is replaced in one step; with
/// KX_CONFIG_DISCARD they are dropped. Where nothing changed, nothing is written. Over symbolic links the
/// file behind them is replaced, or made.
///
/// The new file has the owner, group, permissions, access control list and "user." attributes of the old one.
/// Where the caller may not give it the owner, it still gets the group; where it may not give the group
/// either, the group's rights are those of all others, and the list does not come along. Security labels and
/// capabilities are made anew by the system.
/// @return 0 on success (also for the default store, which stays open); non-zero when the file could not be
/// written, with a message, and for a handle that is none.
KX_API int32_t kxCFGClose(KXConfigHandle handle, uint32_t save);

/// Reads (KX_CONFIG_READ) or writes (KX_CONFIG_WRITE) a 32-bit number.
/// @param handle of kxCFGOpen, or KX_DEFAULT_STORE. @param mode one of the two.
/// @param section path with backslashes, as "Tarnwick\Advanced". @param key any text.
/// @param value in or out; null only tests, in a read, whether the key is there, number or text.
/// @return 0 on success; non-zero if the key is absent or is no number, if the store cannot be written, and
/// for any other mode and a null section or key. @p value is then left alone.
KX_API int32_t kxCFGValueDword(KXConfigHandle handle, const char* section, const char* key, uint32_t* value,
                               uint32_t mode);

/// Reads (KX_CONFIG_READ) or writes (KX_CONFIG_WRITE) a text of any bytes.
/// A read with a null @p buffer stores the size needed, terminator included, in @p size: 0 for an absent key
/// and for an empty text. A read with a buffer of *size bytes fills it, terminator included, and stores the
/// same size (so 0 for an empty text, which still takes the byte of its terminator); a buffer too small
/// fails, is left alone, and the size that would do is told. A write takes the text up to its terminator, or
/// up to *size bytes if that comes first (a null @p size: to the terminator).
/// @return 0 on success; non-zero if the key is absent or is a number (@p buffer and, with a buffer, @p size
/// are then left alone), if the store cannot be written, for a null section, key, or @p size in a read, for
/// a null buffer in a write, and for any other mode.
KX_API int32_t kxCFGValueString(KXConfigHandle handle, const char* section, const char* key, char* buffer,
                                uint32_t* size, uint32_t mode);

/// Removes a key. @return 0 when it is gone, also when it was not there; non-zero if the store cannot be
/// written or the handle is none.
KX_API int32_t kxCFGDeleteValue(KXConfigHandle handle, const char* section, const char* key);

/// Begins and ends a group of changes of the calling thread: between the two, kxCFGValueDword,
/// kxCFGValueString and kxCFGDeleteValue gather what they are to change, and the end makes all of it in one
/// durable step, or nothing. Others see the store as it was before or as it is afterwards; the thread itself
/// reads what it has written. In between, the result of a change only says that it was taken. Groups may be
/// nested; the outermost end counts. A thread that ends in between changes nothing. The changes of a store in
/// a file wait for kxCFGClose in any case, so that for such a store the two do nothing.
///
/// The two are optional in a host's own layer: libqlnutil does without where they are not there, and calls
/// them around its writes where they are.
/// @return 0 on success; non-zero for a handle that is none, for an end without a beginning, and where the
/// changes could not be made (the store then holds what it held).
/// @{
KX_API int32_t kxCFGBegin(KXConfigHandle handle);
KX_API int32_t kxCFGEnd(KXConfigHandle handle);
/// @}

/// Sets the place of the default store's database for this process; null or "" goes back to the user's own,
/// $XDG_CONFIG_HOME/tarnwick/settings.db or ~/.config/tarnwick/settings.db. The file is made by the first
/// change, with its folders, for its owner alone. To be called before the default store is used by other
/// threads.
/// @param path copied; a relative one counts from the working folder of this call.
KX_API void kxCFGSetDefaultStore(const char* path);

/* ---- Diagnostics -------------------------------------------------------------------------------------- */

#define KX_SEVERITY_ERROR 0x00000001u   /**< what ErrOut reports */
#define KX_SEVERITY_DEBUG 0x00000002u   /**< what OutputDebugStringA sends; the default sink drops it */
#define KX_SEVERITY_WARNING 0x80000000u /**< the flags word of the text writers' warnings */

/// Receives one diagnostic. @param severity one of the above, or the flags word of ErrFmtOut.
/// @param text the finished text, NUL-terminated, valid during the call only. @param context as it was set.
typedef void (*KXDiagnosticSink)(uint32_t severity, const char* text, void* context);

/// Sends all further diagnostics of the process to @p sink; null goes back to the default, which writes a
/// line to standard error. Calls of the sink do not overlap. The sink must not emit diagnostics itself.
KX_API void kxSetDiagnosticSink(KXDiagnosticSink sink, void* context);

/// Sends the diagnostics that the calling thread emits to @p sink instead, until the thread calls this again;
/// null sends them to the process's sink again. For a caller that wants to know what its own calls say while
/// other threads go on. @param sink, context as for kxSetDiagnosticSink.
/// @param previousSink, previousContext the thread's sink so far, for whoever puts it
/// back; may be null.
KX_API void kxSetThreadDiagnosticSink(KXDiagnosticSink sink, void* context, KXDiagnosticSink* previousSink,
                                      void** previousContext);

/// Emits a diagnostic line made from a printf format; null emits nothing. Never fails. Safe from any thread.
KX_API void ErrOut(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// The same with a severity word. @param flags KX_SEVERITY_ bits. @param reserved1, reserved2 0.
/// @param format a printf format.
KX_API void ErrFmtOut(uint32_t flags, uint32_t reserved1, uint32_t reserved2, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

/// Sends a debug text to the same sink under KX_SEVERITY_DEBUG.
KX_API void OutputDebugStringA(const char* text);

/* ---- Fourcc classes ----------------------------------------------------------------------------------- */

/// Each tells whether a codec's fourcc belongs to a class: non-zero if so. Both byte orders are accepted. The
/// codes come from the public registries (MP4 and QuickTime sample entries, AVI compressor codes); no code is
/// in two classes. fccIsDolbyVision knows the HEVC-based entries only, and XAVC codes are neither in
/// fccIsh264 nor in fccIsAVCi.
/// @{
KX_API int32_t fccIsDv25(uint32_t fourcc);
KX_API int32_t fccIsDv50(uint32_t fourcc);
KX_API int32_t fccIsDv100(uint32_t fourcc);
KX_API int32_t fccIsJpeg(uint32_t fourcc);
KX_API int32_t fccIsAvidJpeg(uint32_t fourcc);
KX_API int32_t fccIsAvidJfif(uint32_t fourcc);
KX_API int32_t fccIsXAVC(uint32_t fourcc);
KX_API int32_t fccIsAVCi(uint32_t fourcc);
KX_API int32_t fccIsDolbyVision(uint32_t fourcc);
KX_API int32_t fccIsHEVC(uint32_t fourcc);
KX_API int32_t fccIsh264(uint32_t fourcc);
KX_API int32_t fccIsHDCamSR(uint32_t fourcc);
KX_API int32_t fccIsBayer(uint32_t fourcc);
KX_API int32_t fccIsDPX(uint32_t fourcc);
KX_API int32_t fccIsRawRGB(uint32_t fourcc);
KX_API int32_t fccIsYCbCr10(uint32_t fourcc);
KX_API int32_t fccIsYCbCr8(uint32_t fourcc);
KX_API int32_t fccIs8BitD1YUV(uint32_t fourcc);
/// @}

/* ---- Text encoders ------------------------------------------------------------------------------------ */

/// Encodes bytes as Base64 (RFC 4648) with a line feed behind each 72 characters and a terminator at the end.
/// @param source the bytes. @param length how many. @param[out] output the text.
/// @param[in,out] size the room of @p output in bytes on entry, the text's length without terminator on
/// return; n = length x 4 / 3 + 4 plus n / 72 + 17 is always enough.
/// @return 0; non-zero where the room does not suffice or a pointer is null: nothing is written then.
KX_API int32_t base64_encode(const void* source, uint32_t length, uint32_t* size, char* output);

/* jsmn_init and jsmn_parse are exported by libkxutil as the installed <jsmn.h> declares them (include it with
   JSMN_HEADER defined). */

#ifdef __cplusplus
}
#endif

#endif
