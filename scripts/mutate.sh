#!/usr/bin/env bash
# A developer tool, not part of CI: proves that the tests catch real faults. It applies each
# deliberate fault below to the source, one at a time, rebuilds the test program of
# that subsystem, runs it, and restores the source. Every fault must make at least one test fail.
#   scripts/mutate.sh            # all faults
#   scripts/mutate.sh nfc log    # only the faults whose name contains one of these words
# Exits non-zero when a fault was not caught or could not be applied.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${VANTU_MUTATE_BUILD:-$root/build-mutate}"
cd "$root"

# Each fault: a name, the file, the test program that must catch it, and a perl substitution
# (applied with perl -0pi).
names=() files=() programs=() expressions=()
fault() { names+=("$1"); files+=("$2"); programs+=("$3"); expressions+=("$4"); }
fault utf8-encoder Common/internal/TextConversion.cpp vantu_core_tests \
  's/d\[1\] = static_cast<Byte>\(0x80 \| \(cp >> 6 & 0x3F\)\);/d[1] = static_cast<Byte>(0x80 | (cp >> 5 & 0x3F));/'
fault nfc-mark-order Common/internal/Nfc.h vantu_core_tests \
  's/\(property != 0 && lastClass_ > property\)/(property != 0 \&\& lastClass_ > property \&\& false)/'
fault copy-forgets-nfc Common/core/VString.cpp vantu_core_tests \
  's/encoding_\(other.encoding_\), normalization_\(other.normalization_\) \{\}/encoding_(other.encoding_) {}/'
fault nfc-compose-blocked Common/internal/Nfc.cpp vantu_core_tests \
  's/NfcCombiningClass\(p\[kept - 1\].data\) < cc/NfcCombiningClass(p[kept - 1].data) <= cc/'
fault nfc-canonical-order Common/internal/Nfc.cpp vantu_core_tests \
  's/for \(size_t k = 1; k < n; \+\+k\) \{/for (size_t k = n; k < n; ++k) {/'
fault nfc-hangul-tbase Common/internal/Nfc.cpp vantu_core_tests \
  's/if \(t > kTBase && t - kTBase < kTCount\)/if (t - kTBase < kTCount)/'
fault nfc-hangul-run Common/internal/Nfc.cpp vantu_core_tests \
  's/syllable \+= t - kTBase;/syllable += t - kTBase + 1;/'
fault nfc-quiet-continuation Common/internal/Nfc.cpp vantu_core_tests \
  's/if \(high >= 0x40\) return false;/(void)high;/'
fault nfc-quiet-block Common/internal/Nfc.cpp vantu_core_tests \
  's/if \(\(expected & 0xFFFF\) != continuation\) return 0;/(void)expected;/'
fault nfc-nul-end Common/internal/Nfc.cpp vantu_core_tests \
  's/if \(lead == 0\) break;/(void)0;/'
fault pair-sign Common/core/VStringNumbers.cpp vantu_core_tests \
  's/SetPair\(static_cast<int16_t>\(bits >> 16\)/SetPair(static_cast<uint16_t>(bits >> 16)/'
fault compare-nocase Common/core/VString.cpp vantu_core_tests \
  's/cb = static_cast<unsigned char>\(AsciiLower\(static_cast<char>\(cb\)\)\);//'
fault latin9-table Common/internal/TextConversion.cpp vantu_core_tests \
  's/return 0x0152;  \/\/ ligature OE/return 0x0153;  \/\/ ligature OE/'
fault base64-lines Common/core/VStringNumbers.cpp vantu_core_tests \
  's/Poco::Base64Encoder encoder\(out\);/Poco::Base64Encoder encoder(out);\n  encoder.rdbuf()->setLineLength(76);/'
fault codepage-nul Common/internal/TextConversion.cpp vantu_core_tests \
  's/if \(nul != std::string::npos\) out.resize\(nul\);/(void)nul;/'
fault counted-bytes Common/core/VString.cpp vantu_core_tests \
  's/size_t count\) \{ SetBytes\(text, count, SystemCodePage\); \}/size_t count) { (void)count; Set(text); }/'
fault leap-year Common/time/VDateTime.cpp vantu_time_tests \
  's/\(year % 100 != 0 \|\| year % 400 == 0\)/(year % 100 != 0)/'
fault remove-follows-links Common/platform/FilesBelow_POSIX.cpp vantu_files_tests \
  's/O_DIRECTORY \| O_NOFOLLOW \| O_CLOEXEC/O_DIRECTORY | O_CLOEXEC/'
fault path-normalised Common/internal/PathText.cpp vantu_files_tests \
  's/VStringAccess::SetBytes\(path, bytes, encoding\);/path.SetRaw(bytes.data(), bytes.size(), encoding);/'
fault log-batch-limit Common/log/internal/AsyncLogChannel.cpp vantu_log_tests \
  's/limit_ - size : 0/UINT64_MAX - size : 0/'
fault log-weekday Common/log/internal/LogLineFormatter.cpp vantu_log_tests \
  's/\(\(days % 7\) \+ 11\) % 7/((days % 7) + 12) % 7/'
fault size-stability Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/size2 > pending.size1 \|\| size2 == 0/size2 == 0/'
fault callback-mutex Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(depth_ == 0 \|\| owner_ != self\) \{/if (true) {/'
fault callbacks-overlap Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/free_.wait\(lock, \[&\] \{ return depth_ == 0 \|\| halted\(\); \}\);\n      if \(depth_ != 0\) return false;/(void)halted;/'
fault unreadable-forgets Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(error != ENOENT && error != ENOTDIR\) unreadable_/if (error == -1) unreadable_/'
fault list-never-trimmed Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/return entry.ticket <= lastTicket_ && /return false \&\& /'
fault remove-waits-for-scan Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/    listed.unlock\(\);\n(    callBack\(\);\n    const bool changed = WaitForChanges\(deadline\);\n)    listed.lock\(\);\n/$1/'
fault callback-under-list-lock Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/(      if \(!g_callbackGate.Enter\(halted\)\) break;)/      std::lock_guard<std::recursive_mutex> held(*listMutex_);\n$1/'
fault removed-called-back Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(entry == nullptr \|\| entry->ticket != delivery.ticket\) continue;/(void)entry;/'
fault remove-stats-entries Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/entry->directory != directory\) return;/VFile(VPath::FromFileSystem(std::string(key))).IsDirectory() != directory) return;/'
fault hotfolder-link-escapes Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/return Inside\(target\) \? LinkUse::kTarget/return (Inside(target) || true) ? LinkUse::kTarget/'
fault hotfolder-follow-ignored Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/followLinks \? LinkUse::kName : LinkUse::kSkip/LinkUse::kSkip/'
fault hotfolder-remove-follows Common/platform/FilesBelow_POSIX.cpp vantu_hotfolder_tests \
  's/next = ::openat\(fd, name.c_str\(\), kDirectoryFlags\);/next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);/'
fault hotfolder-rearm-no-scan Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(watching_\) RequestScan\(\);//'
fault hotfolder-too-long-silent Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(error == ENAMETOOLONG\) TooLong\(path\);//'
fault hotfolder-dot-above Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/if \(!dotBelowOnly\) return UnderDotDirectory\(path\);/return UnderDotDirectory(path);/'
fault open-blocks-on-fifo Common/platform/FileIO_POSIX.cpp vantu_zip_tests \
  's/O_RDONLY \| O_NONBLOCK \| O_CLOEXEC\);/O_RDONLY | O_CLOEXEC);/'
fault reads-special-files Common/platform/FileIO_POSIX.cpp vantu_xml_tests \
  's/if \(!S_ISREG\(info.st_mode\)\) throw std::system_error/if (false) throw std::system_error/'
fault zip-crc-unchecked Common/zip/VUnzipFile.cpp vantu_zip_tests \
  's/if \(crc != record.crc\) throw/if (crc != record.crc \&\& false) throw/'
fault zip-parent-name Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(part == "\.\."\) return refuse\("parent folder"\);//'
fault zip-absolute-name Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(!name.empty\(\) && name\[0\] == .\/.\) return refuse\("absolute"\);//'
fault zip-link-climbs-late Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(part == "\.\." && descended\) return false;//'
fault zip-folder-follows-links Common/platform/FilesBelow_POSIX.cpp vantu_zip_tests \
  's/next = ::openat\(fd, name.c_str\(\), kDirectoryFlags\);/next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);/'
fault zip-dot-entry Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(name.empty\(\)\) return refuse\("empty"\);/if (components.empty()) return refuse("empty");/'
fault zip64-offset Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(offset32 == 0xFFFFFFFF\) next\(record.localOffset\);/if (offset32 == 0xFFFFFFFF) (void)0;/'
fault zip64-end-records Common/zip/VZipFile.cpp vantu_zip_tests \
  's/AddZip64EndRecords\(temp_\);//'
fault zip-archive-in-tree Common/zip/VZipFile.cpp vantu_zip_tests \
  's/std::find\(own_.begin\(\), own_.end\(\), status.identity\) == own_.end\(\)/true/'
fault zip-utf8-claimed Common/zip/VZipFile.cpp vantu_zip_tests \
  's/IsValidUtf8\(item.name\) \? kZipFlagUtf8 : 0/kZipFlagUtf8/'
fault zip-folder-mode Common/zip/VUnzipFile.cpp vantu_zip_tests \
  's/record.modifiedSeconds, record.UnixMode\(\)\);\n      \} catch \(\.\.\.\)/record.modifiedSeconds, 0);\n      } catch (...)/'
fault zip-unwind-commits Common/zip/VZipFile.cpp vantu_zip_tests \
  's/if \(std::uncaught_exceptions\(\) > uncaughtAtOpen_\) broken_ = true;//'
fault zip-pre-1970 Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/epochSeconds, INT32_MIN, 0xFFFFFFFFLL/epochSeconds, 0, 0xFFFFFFFFLL/'
fault zip-zstd-incompressible Common/zip/VZipFile.cpp vantu_zip_tests \
  's/if \(packed.data.size\(\) >= size\) packed.method/if (method_ == kZipDeflate \&\& packed.data.size() >= size) packed.method/'
fault zip-zone-per-entry Common/platform/Time_POSIX.cpp vantu_zip_tests \
  's/std::call_once\(once, \[\] \{ ::tzset\(\); \}\);/::tzset();/'
fault zip-shared-bytes Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/(\s+)Corrupt\("entry \\"" \+ record\.name/$1if (false) Corrupt("entry \\"" + record.name/'
fault zip-declared-limit Common/zip/VUnzipFile.cpp vantu_zip_tests \
  's/declared > maxBytes_\)/declared > maxBytes_ \&\& false)/'
fault zip-dos-seconds Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/\(dosTime & 0x1F\) \* 2/(dosTime \& 0x1F) * 1/'
fault zip-lzma-properties Common/zip/internal/ZipCodec.cpp vantu_zip_tests \
  's/std::memcpy\(alone, header_ \+ 4, 5\);/std::memcpy(alone, header_ + 3, 5);/'
fault zip-zstd-unmarked Common/zip/VZipFile.cpp vantu_zip_tests \
  's/PatchEntryMethods\(temp_, zstdNames_, kZipZstd\);//'
fault zip-links-not-skipped Common/zip/VZipFile.cpp vantu_zip_tests \
  's/status.isLink && \(skipLinks \|\|/status.isLink \&\& (false ||/'
fault random-modulo Common/core/VRandom.cpp vantu_zip_tests \
  's/return static_cast<uint32_t>\(product >> 32\);/return Next() % n;/'
fault random-tail Common/core/VRandom.cpp vantu_zip_tests \
  's/std::memcpy\(out, &word, size\);/std::memcpy(out, \&word, 8);/'
fault uuid-fork-pool Common/core/VUUID.cpp vantu_zip_tests \
  's/generation != generation_ \|\| //'
fault uuid-v7-counter Common/core/VUUID.cpp vantu_zip_tests \
  's/counter = state.counter \+ 1;/counter = state.counter;/'
fault lease-ignored-fd Common/platform/FileAvailability_POSIX.cpp vantu_files_tests \
  's/if \(lease == 0\) return -1;//'
fault walk-revisits-set Common/internal/DirectoryWalk.cpp vantu_files_tests \
  's/visitor_.Enter\(path_\) && Enter\(\)/visitor_.Enter(path_) \&\& (Enter(), true)/'
fault walk-depth Common/internal/DirectoryWalk.cpp vantu_files_tests \
  's/result = Directory\(true, depth - 1\);/result = Directory(true, depth);/'
fault special-files-available Common/platform/FileAvailability_POSIX.cpp vantu_files_tests \
  's/\|\| !S_ISREG\(info.st_mode\)\) return -1;/|| S_ISDIR(info.st_mode)) return -1;/'
fault fileinfo-reopens Common/flat/FlatFiles.cpp vantu_files_tests \
  's/vantu::platform::OpenAvailableForReadingFd\((vantu::internal::PathBytes\(file.GetPath\(\)\))\)\);/file.IsAvailable(false, false) ? vantu::platform::OpenForReadingFd($1) : -1);/'
fault file-errors-not-found Common/internal/FileErrors.cpp vantu_files_tests \
  's/throw VantuFileNotFoundException\(e.message\(\), 0\);/throw VantuFileException(e.message(), 0);/'
fault list-replaces Common/files/VFile.cpp vantu_files_tests \
  's/names.insert\(names.end\(\)/names.clear();\n  names.insert(names.end()/'
fault relative-names Common/files/VPath.cpp vantu_files_tests \
  's/fromNames\[shared\] == pathNames\[shared\]/fromNames[shared].size() == pathNames[shared].size()/'
fault append-encoding Common/files/VPath.cpp vantu_files_tests \
  's/std::max\(GetEncoding\(\), other.GetEncoding\(\)\)/GetEncoding()/'
fault log-level-filter Common/log/VLog.cpp vantu_log_tests \
  's/priority > chain->level.load\(\)\) return;/priority > chain->level.load() + 1) return;/'
fault log-nul-level Common/log/VLog.cpp vantu_log_tests \
  's/if \(levelName.find\(.\\0.\) != std::string::npos\) return;//'
fault log-purge-units Common/log/VLog.cpp vantu_log_tests \
  's/"minutes", "minutes", "hours"/"minutes", "minutes", "days"/'
fault log-close-drops Common/log/internal/AsyncLogChannel.cpp vantu_log_tests \
  's/if \(queue_.empty\(\)\) return;/if (stopping_) return;/'
fault log-cut-marker Common/log/VLogMessage.cpp vantu_log_tests \
  's/out << buffer << sizeof\(buffer\);/out << buffer;/'
fault log-fatal-function Common/log/VLogMessage.cpp vantu_log_tests \
  's/if \(level_ == "FATAL"\)/if (level_ == "ERROR")/'
fault sync-name-escape Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/c == \x27_\x27 \|\|//'
fault log-stream-reset Common/log/VLogMessage.cpp vantu_log_tests \
  's/stream.flags\(std::ios::skipws \| std::ios::dec\);//'
fault log-stream-taken Common/log/VLogMessage.cpp vantu_log_tests \
  's/  t_spare = nullptr;\n  if \(!stream\)/  if (!stream)/'
fault xml-path-dotdot Common/xml/VXML.cpp vantu_xml_tests \
  's/\(p\[1\] == \x27\.\x27 && end == p \+ 2\)/false/'
fault xml-path-climb Common/xml/VXML.cpp vantu_xml_tests \
  's/name = names.Previous\(name\);/name = first;/'
fault xml-value-in-place Common/xml/VXML.cpp vantu_xml_tests \
  's/if \(text != kept\) element.remove_child/element.remove_child/'
fault xml-save-tail Common/xml/VXML.cpp vantu_xml_tests \
  's/file.Write\(pending.data\(\), pending.size\(\)\);\n    file.Commit/file.Commit/'
fault sync-name-hash Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/if \(escaped.size\(\) > 200\)/if (escaped.size() >= 200)/'
fault sync-owner-dead Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/if \(error == EOWNERDEAD\) error = pthread_mutex_consistent/if (error == EOWNERDEAD \&\& false) error = pthread_mutex_consistent/'
fault sync-event-counts Common/platform/NamedEvent_POSIX.cpp vantu_sync_tests \
  's/if \(block.signalled == 0\) \{\n    block.signalled = 1;/{\n    ++block.signalled;/; s/block.signalled = 0;\n  pthread_mutex_unlock/--block.signalled;\n  pthread_mutex_unlock/'
fault sync-fork-shares-lock Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/\|\| ::dup3\(fd, object.fd, O_CLOEXEC\) < 0;/|| false;/'
fault sync-stale-region Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/::ftruncate\(fd, 0\) != 0 \|\| //'
fault sync-region-too-small Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/if \(shared->mapping.dataSize < dataSize\)/if (shared->mapping.dataSize < dataSize \&\& false)/'
fault sync-last-handle-levels Common/platform/NamedMutex_POSIX.cpp vantu_sync_tests \
  's/levels = mutex->__data.__count;/levels = 1;/'
fault sync-mutex-untranslated Common/sync/VMutex.cpp vantu_sync_tests \
  's/Translated\(\[this\] \{ mutex_->unlock\(\); \}\);/mutex_->unlock();/'
fault sync-thread-stays-running Common/sync/VWorker.cpp vantu_sync_tests \
  's/running.store\(false, std::memory_order_release\)/running.store(true, std::memory_order_release)/'
fault sync-flat-null-event Common/flat/FlatSync.cpp vantu_sync_tests \
  's/(void vantu_EventSet\(void\* handle\) \{\n)  if \(handle == nullptr\) return;\n/$1/'
fault sync-notify-name Common/sync/VNotificationCenter.cpp vantu_sync_tests \
  's/observer->GetNotification\(\)->GetName\(\) != name\)/observer->GetNotification()->GetName().size() != name.size())/'
fault sync-made-world-readable Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/O_CREAT \| O_EXCL, 0600\);/O_CREAT | O_EXCL, 0666);/; s/::fchmod\(fd, 0600\)/::fchmod(fd, 0666)/'
fault sync-adopts-planted-file Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/    CheckOwnership\(kind, fd, systemName\);/    if (false) CheckOwnership(kind, fd, systemName);/'
fault sync-lock-wait-unbounded Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/if \(!alone && ::flock\(fd, LOCK_SH \| LOCK_NB\) != 0\)/if (!alone \&\& ::flock(fd, LOCK_SH) != 0)/'
fault sync-open-under-registry Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/    shared.reset\(Open\(kind, systemName, dataSize\), Release\);/    std::lock_guard<std::mutex> held(registry.mutex);\n$&/'
# The open that does not wait for a pending release of its name, as it was: under the registry's
# lock (without that lock the race is too narrow to be caught reliably).
fault sync-open-beside-release Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/registry.changed.wait\(lock\);  \/\/ another/if (found->second != nullptr) { registry.objects.erase(found); continue; }\n      $&/; s/    shared.reset\(Open\(kind, systemName, dataSize\), Release\);/    std::lock_guard<std::mutex> held(registry.mutex);\n$&/'
fault sync-fork-keeps-orphans Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  's/  registry.orphans = true;\n//'
fault sync-name-marker Common/platform/NamedObjectStore_POSIX.cpp vantu_sync_tests \
  "s/escaped \+= '~';/escaped += '.';/"
# Not here: a last close that unlocks once more than it holds changes nothing a test sees; the
# ThreadSanitizer run of NamedObjectThreadsTest reports it ("unlock of an unlocked mutex").
fault sync-event-auto-stays-set Common/sync/internal/Event.h vantu_sync_tests \
  's/if \(!autoReset_ \|\|\s+word_.compare_exchange_weak/if (true || word_.compare_exchange_weak/'
fault sync-start-unheld Common/sync/VThread.cpp vantu_sync_tests \
  's/std::shared_ptr<Poco::Thread> thread = thread_;/std::shared_ptr<Poco::Thread>\& thread = thread_;/; s/std::shared_ptr<VWorker> held = worker_;/std::shared_ptr<VWorker>\& held = worker_;/'
fault public-header-poco include/vantu/VWorker.h vantu_public_headers \
  's/#include <vantu\/Export.h>/#include <Poco\/Runnable.h>\n\n#include <vantu\/Export.h>/'
fault random-fork-continues Common/core/VRandom.cpp vantu_zip_tests \
  's/if \(forkGeneration_ != kCallerSeeded && /if (false \&\& /'
fault net-no-fallback Common/net/internal/ReceiveBuffer.cpp vantu_net_tests \
  's/      Release\(\);  \/\/ the held bytes are lost\n      if \(!Allocate\(FirstCapacity\(n\)\)\) return false;/      return false;/'
fault claim-overwrites tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/renameat2\(fromDir, from, toDir, to, RENAME_NOREPLACE\)/renameat2(fromDir, from, toDir, to, 0)/'
fault claim-gone-is-error tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/gone = error == ENOENT &&/gone = error == -1 \&\&/'
fault claim-leftovers-ignored tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/std::sort\(left.begin\(\), left.end\(\)\);/left.clear();/'
fault claim-not-locked tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/::flock\(fd, LOCK_EX \| LOCK_NB\) != 0/::flock(fd, LOCK_UN) != 0/'
fault claim-lock-no-wait tools/hotfolder/Claim.h vantu-hotfolder \
  's/std::chrono::seconds\(10\)/std::chrono::seconds(0)/'
fault claim-takes-any-folder tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/if \(!made && ::faccessat/if (!made \&\& false \&\& ::faccessat/'
fault claim-made-before-checks tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/  if \(elsewhere\(planned\)\) return false;/  std::filesystem::create_directories(options.claim, error);\n$&/'
fault claim-name-too-long tools/hotfolder/Claim.cpp vantu-hotfolder \
  's/size_t keep = std::min\(dot, NAME_MAX - tail.size\(\)\);/size_t keep = dot;/'
fault claim-not-reopened tools/hotfolder/Folder.cpp vantu-hotfolder \
  's/const bool watched = !SameFolder/const bool watched = false \&\& !SameFolder/'
fault tool-log-trace-default tools/hotfolder/Log.cpp vantu-hotfolder \
  's/: options.verbose\s+\? kInformation\s+: kNotice/: kInformation/'
fault tool-null-tab tools/hotfolder/Output.cpp vantu-hotfolder \
  's/record \+= separator \+ std::string\("deleted"\)/record += "\\tdeleted"/'
fault tool-delete-through-links tools/hotfolder/Folder.cpp vantu-hotfolder \
  's/O_PATH \| O_DIRECTORY \| O_NOFOLLOW \| O_CLOEXEC/O_PATH | O_DIRECTORY | O_CLOEXEC/'
fault tool-follow-links-ignored tools/hotfolder/main.cpp vantu-hotfolder \
  's/folder.SetFollowLinks\(options.followLinks\);//'
fault tool-skipped-link-silent tools/hotfolder/Log.cpp vantu-hotfolder \
  's/VHotfolder Line: 236/VHotfolder Line: 936/'
fault tool-dot-rule-above tools/hotfolder/main.cpp vantu-hotfolder \
  's/folder.SetDotRuleBelowFolderOnly\(true\);//'
fault tool-watched-unresolved tools/hotfolder/Folder.cpp vantu-hotfolder \
  's/std::filesystem::canonical\(options.directory, error\)/std::filesystem::absolute(options.directory, error)/'
fault tool-unreadable-watched tools/hotfolder/Folder.cpp vantu-hotfolder \
  's/::open\(path.c_str\(\), O_RDONLY \| O_DIRECTORY \| O_CLOEXEC\);\n  if \(fd < 0\) return Fail\("cannot read/::open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);\n  if (fd < 0) return Fail("cannot read/'
fault claim-lock-shared tools/hotfolder/Claim.cpp vantu_hotfolder_tool_tests \
  's/::flock\(fd, LOCK_EX \| LOCK_NB\) != 0/::flock(fd, LOCK_SH | LOCK_NB) != 0/'
fault claim-link-followed tools/hotfolder/Folder.cpp vantu_hotfolder_tool_tests \
  's/O_PATH \| O_DIRECTORY \| O_NOFOLLOW \| O_CLOEXEC/O_PATH | O_DIRECTORY | O_CLOEXEC/'
fault claim-dot-rule-off tools/hotfolder/Claim.cpp vantu_hotfolder_tool_tests \
  's/if \(path.find\("\/\.", watched.size\(\)\) != std::string::npos\) return false;/return false;/'
fault net-max-redirects Common/net/VURL.cpp vantu_net_tests \
  's/CURLOPT_MAXREDIRS, 50L/CURLOPT_MAXREDIRS, 51L/'
fault net-no-follow Common/net/VURL.cpp vantu_net_tests \
  's/CURLOPT_FOLLOWLOCATION, 1L/CURLOPT_FOLLOWLOCATION, 0L/'
fault net-error-body Common/net/VURL.cpp vantu_net_tests \
  's/\(flags & kKeepErrorBody\) == 0\)/true)/'
fault net-heap-to-range Common/net/internal/ReceiveBuffer.cpp vantu_net_tests \
  's/std::memcpy\(data_, heap, held\);/std::memcpy(data_, heap, held \/ 2);/'
fault net-range-commit Common/net/internal/ReceiveBuffer.cpp vantu_net_tests \
  's/if \(need > have && /if (need > have + kRangeAlignment && /'
fault net-copy-bytes Common/net/internal/ReceiveBuffer.cpp vantu_net_tests \
  's/std::memcpy\(data_, other.data_, other.length_\);/std::memcpy(data_, other.data_, other.length_ \/ 2);/'
fault net-growth-step Common/net/internal/ReceiveBuffer.cpp vantu_net_tests \
  's/\(\(capacity_ \+ n\) \/ kStep \+ 1\)/((capacity_ + n) \/ kStep + 2)/'
fault net-cancel-stores Common/net/VURL.cpp vantu_net_tests \
  's/return 0x10000000;/return n;/'
fault net-expect-sent Common/net/VURL.cpp vantu_net_tests \
  's/: "Expect:"\)/: "X-Expect:")/'
fault net-full-disk Common/net/VURL.cpp vantu_net_tests \
  's/!= 0 && result == CURLE_OK\)/!= 0 \&\& false)/'
fault net-verify-always Common/net/VURL.cpp vantu_net_tests \
  's/state.verifyPeer \? 1L : 0L/1L/'
fault net-bundle-ignored Common/net/VURL.cpp vantu_net_tests \
  's/state.verifyPeer && state.caBundle.Length\(\) != 0/false/'
fault net-stale-status Common/net/VURL.cpp vantu_net_tests \
  's/url.state_->responseCode = 0;//'
fault net-global-leak Common/net/internal/CurlGlobal.cpp vantu_net_tests \
  's/if \(ready_\) CurlEntries\(\).globalCleanup\(\);/(void)ready_;/'
fault net-easy-leak Common/net/VURL.cpp vantu_net_tests \
  's/if \(easy != nullptr\) CurlEntries\(\).easyCleanup\(easy\);//'
fault net-buffer-kept Common/net/VURL.cpp vantu_net_tests \
  's/state.received.Clear\(\);//'
fault net-header-line-breaks Common/net/VURL.cpp vantu_net_tests \
  's/find_first_of\("\\r\\n\\0", 0, 3\)/find_first_of("", 0, 0)/'
fault net-any-scheme Common/net/VURL.cpp vantu_net_tests \
  's/: nullptr;\n  curl_free/: "all";\n  curl_free/'
fault net-https-redirects-to-http Common/net/VURL.cpp vantu_net_tests \
  's/\(scheme, "https"\) \? "https"/(scheme, "https") ? "http,https"/'
fault net-downgrade-in-chain Common/net/VURL.cpp vantu_net_tests \
  's/self.downgraded = self.secure && !secure;/self.downgraded = false;/'
fault net-body-not-rewound Common/net/VURL.cpp vantu_net_tests \
  's/curl_easy_setopt\(easy, CURLOPT_SEEKFUNCTION, &Transfer::BlockSeeker\);//'
fault net-cancel-only-on-data Common/net/VURL.cpp vantu_net_tests \
  's/if \(state.cancel != nullptr \|\| state.activeCancel\) \{  \/\/ also asked while nothing arrives/if (false) {/'
fault net-no-error-buffer Common/net/VURL.cpp vantu_net_tests \
  's/curl_easy_setopt\(easy, CURLOPT_ERRORBUFFER, errors\);//'
fault net-no-shared-connections Common/net/VURL.cpp vantu_net_tests \
  's/CURLOPT_SHARE, vantu::internal::ThreadShare\(\)\)/CURLOPT_SHARE, static_cast<CURLSH*>(nullptr))/'
fault net-share-crosses-fork Common/net/internal/CurlGlobal.cpp vantu_net_tests \
  's/if \(share_ != nullptr && generation != generation_\)/if (false)/'
fault xml-write-changes-tree Common/xml/VXML.cpp vantu_xml_tests \
  's/pugi::xml_document scratch;/pugi::xml_document& scratch = const_cast<pugi::xml_document&>(document);/; s/\? scratch.append_copy\(first\)\s+: scratch.append_child/? first : scratch.prepend_child/'
fault xml-value-first-text Common/xml/VXML.cpp vantu_xml_tests \
  's/bytes \+= text.value\(\);/bytes += text.value();\n    break;/'
fault xml-set-value-first-text Common/xml/VXML.cpp vantu_xml_tests \
  's/const pugi::xml_node next = NextText\(text.next_sibling\(\)\);/const pugi::xml_node next;/'
fault xml-copy-encoding Common/xml/VXML.cpp vantu_xml_tests \
  's/SetEncoding\(source->GetEncoding\(\)\);//'
fault xml-file-path-unresolved Common/xml/VXMLFile.cpp vantu_xml_tests \
  's/if \(path_.Length\(\) != 0\) \{/if (false) {/'
fault xml-union-sorted-by-position Common/xml/VXML.cpp vantu_xml_tests \
  's/if \(result.type\(\) == pugi::xpath_node_set::type_unsorted && result.size\(\) > 1\)/if (false)/'
fault xml-save-named-temporary Common/platform/AtomicSave_POSIX.cpp vantu_xml_tests \
  's/if \(!g_namedTemporaries\) \{/if (false) {/'
fault xml-stale-temporaries-kept Common/platform/AtomicSave_POSIX.cpp vantu_xml_tests \
  's/if \(owner > 0 && ::kill\(owner, 0\) != 0 && errno == ESRCH\)/if (owner < 0)/'
fault xml-stale-locked-removed Common/platform/AtomicSave_POSIX.cpp vantu_xml_tests \
  's/S_ISREG\(info.st_mode\) &&\s+::flock\(file.get\(\), LOCK_EX \| LOCK_NB\) == 0\)/S_ISREG(info.st_mode))/'
fault xml-stale-any-name Common/platform/AtomicSave_POSIX.cpp vantu_xml_tests \
  's/return std::strcmp\(p, ".tmp"\) == 0 \? static_cast<pid_t>\(pid\) : 0;/return static_cast<pid_t>(pid);/'
fault log-folder-from-root Common/log/VLog.cpp vantu_log_tests \
  's/if \(base.Length\(\) != 0 && VFile\(base\).IsDirectory\(\)\) VFile\(DefaultFolder\(\)\).CreateDirectory\(\);/VFile(DefaultFolder()).CreateDirectories();/'
fault stdtypes-utf8-nul Common/core/VString.cpp vantu_core_tests \
  's/const size_t nul = text.find\(.\\0., start\);/const size_t nul = std::string_view::npos;/'
fault stdtypes-utf16-byte-order Common/core/VString.cpp vantu_core_tests \
  's/\(bytes\[2 \* i\]\) \|/(bytes[2 * i]) << 8 |/; s/\(bytes\[2 \* i \+ 1\]\) << 8/(bytes[2 * i + 1])/'
fault stdtypes-string-path-normalised Common/core/VString.cpp vantu_core_tests \
  's/vantu::internal::SetPathBytes\(result, path.native\(\), UTF8\);/result.Set(path.native(), UTF8);/'
fault stdtypes-stream-raw-bytes Common/core/VString.cpp vantu_core_tests \
  's/if \(text.encoding_ == UTF8\) return out << text.text_;/return out << text.text_;/'
fault stdtypes-path-normalised Common/files/VPath.cpp vantu_files_tests \
  's/return MakePath\(path.native\(\), UTF8\);/return VPath(VString(path.native(), UTF8));/'
fault stdtypes-path-via-utf16 Common/core/VString.cpp vantu_files_tests \
  's/return std::filesystem::path\(vantu::internal::PathBytes\(\*this\)\);/return std::filesystem::path(ToUTF16());/'
fault hotfolder-callable-ignored Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/\(\*handler\)\(std::string_view\(path\)\);/(void)handler;/'
fault hotfolder-callable-not-copied Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/    handler_.swap\(handler\);\n//'
fault hotfolder-callable-keeps-pointer Common/hotfolder/VHotfolder.cpp vantu_hotfolder_tests \
  's/  callback_ = nullptr;\n  handler_.swap\(replaced\);/  handler_.swap(replaced);/'
fault hotfolder-handle-callback Common/flat/FlatHotFolder.cpp vantu_hotfolder_tests \
  's/return callback\(handle, path.data\(\)/return callback(nullptr, path.data()/'
fault timer-callable-ignored Common/hotfolder/VTimer.cpp vantu_hotfolder_tests \
  's/\(\*function\)\(\);/(void)function;/'
fault poco-timer-callable-ignored Common/hotfolder/VPocoTimer.cpp vantu_hotfolder_tests \
  's/\(\*function\)\(\);/(void)function;/'
fault thread-body-ignored Common/sync/VWorker.cpp vantu_sync_tests \
  's/    body\(\);/    (void)body;/'
fault observer-callable-ignored Common/sync/VObserver.cpp vantu_sync_tests \
  's/    function_\(argument\);/    (void)argument;/'
fault walk-callable-ignored Common/files/VDirectoryIterator.cpp vantu_files_tests \
  's/return function_ \? function_\(entry\) : callback_\(entry, userData_\);/return callback_ != nullptr ? callback_(entry, userData_) : 0;/'
fault net-cancel-callable-ignored Common/net/VURL.cpp vantu_net_tests \
  's/\(!state.activeCancel \|\| !\(\*state.activeCancel\)\(size \* count\)\)/true/'
fault net-progress-callable-live Common/net/VURL.cpp vantu_net_tests \
  's/if \(state.activeProgress\) \(\*state.activeProgress\)/if (state.progressFunction) (*state.progressFunction)/'
fault xml-error-utf8-length Common/xml/VXML.cpp vantu_xml_tests \
  's/const unsigned char lead = unit_\[0\];/const unsigned char lead = byte;/'
fault xml-error-converted-length Common/xml/VXML.cpp vantu_xml_tests \
  's/code < 0x80 \? 1 : code < 0x800 \? 2/code < 0x800 ? 1 : code < 0x1000 ? 2/'
fault xml-error-kept Common/xml/VXML.cpp vantu_xml_tests \
  's/(int VXML::Parse\(const std::string& text\) \{\n)  lastError_.clear\(\);\n/$1/'
fault crc-restarts Common/internal/Crc32.cpp vantu_files_tests \
  's/libdeflate_crc32\(crc, data, size\)/libdeflate_crc32(0, data, size)/'
fault crc-file-block-offset Common/flat/FlatFiles.cpp vantu_files_tests \
  's/static_cast<size_t>\(size\) - done\), done\);/static_cast<size_t>(size) - done), 0);/'
fault zip-append-no-old-copy Common/zip/VZipFile.cpp vantu_zip_tests \
  's/platform::WriteAt\(archive, tail.data\(\), tail.size\(\), at\);/(void)at;/'
fault zip-append-not-cut Common/zip/VZipFile.cpp vantu_zip_tests \
  's/platform::SetFileSize\(archive, newSize\);/(void)newSize;/'
fault zip-append-copies Common/zip/VZipFile.cpp vantu_zip_tests \
  's/update = platform::OpenForUpdateFd\(final_\);/(void)0;/'
fault zip-time-source Common/zip/internal/ZipFormat.cpp vantu_zip_tests \
  's/if \(!ReadExtraFields\(/if (ReadExtraFields(/'

filters=("$@")
selected() {
  ((${#filters[@]} == 0)) && return 0
  local f
  for f in "${filters[@]}"; do [[ "$1" == *"$f"* ]] && return 0; done
  return 1
}

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVANTU_BUILD_BENCHMARKS=OFF \
  -DVANTU_BUILD_EXAMPLES=OFF >/dev/null
backup=""
file=""
restore() { if [ -n "$backup" ]; then cp "$backup" "$file"; rm -f "$backup"; backup=""; fi; }
trap restore EXIT INT TERM

failures=0
printf '%-20s %-8s %s\n' fault result "first failing tests"
for i in "${!names[@]}"; do
  name="${names[$i]}" file="${files[$i]}" program="${programs[$i]}" expression="${expressions[$i]}"
  selected "$name" || continue
  backup="$(mktemp)"
  cp "$file" "$backup"
  perl -0pi -e "$expression" "$file"
  if cmp -s "$file" "$backup"; then
    printf '%-20s %-8s %s\n' "$name" "NOT-APPLIED" "$file"
    failures=$((failures + 1))
    restore
    continue
  fi
  if ! cmake --build "$build" -j "$(nproc)" --target "$program" >/dev/null 2>&1; then
    printf '%-20s %-8s %s\n' "$name" caught "(does not compile)"
    restore
    continue
  fi
  log="$(mktemp)"
  # The permission tests skip under root: they run a second time as an unprivileged user
  # (exit 77 when that user cannot reach the build: skipped).
  passed() {
    if [ "$program" = vantu-hotfolder ]; then # the tool: its shell tests, through CTest
      (cd "$build" && timeout 600 ctest -R vantu_hotfolder_tool --output-on-failure >"$log" 2>&1)
      return
    fi
    (cd "$build/tests" && timeout 300 "./$program" --gtest_brief=1 >"$log" 2>&1) || return 1
    local status=0
    (cd "$build/tests" && timeout 300 "$root/tests/support/as-non-root.sh" "./$program" \
      --gtest_brief=1 --gtest_filter='*Unreadable*:*NonRoot*' >>"$log" 2>&1) || status=$?
    [ "$status" -eq 0 ] || [ "$status" -eq 77 ]
  }
  if passed; then
    printf '%-20s %-8s\n' "$name" MISSED
    failures=$((failures + 1))
  else
    failed="$(grep -oE '^\[  FAILED  \] [A-Za-z0-9_./]+' "$log" | awk '{print $4}' | sort -u |
      head -3 | paste -sd' ' || true)"
    [ -n "$failed" ] || failed="$(grep -m1 -oE '^hotfolder (tool|claim): .{0,50}' "$log" || true)"
    printf '%-20s %-8s %s\n' "$name" caught "${failed:-(crashed or timed out)}"
  fi
  rm -f "$log"
  restore
done
cmake --build "$build" -j "$(nproc)" >/dev/null 2>&1 || true
exit $((failures > 0))
