#pragma once

// The list of all that crosses the border between host and module. A test compares it with the
// headers: a field, a virtual function or an enumerator that is not named here fails it.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include "tarvo/connection.h"
#include "tarvo/crash_callbacks.h"
#include "tarvo/crashhandler.h"
#include "tarvo/data_dictionary.h"
#include "tarvo/framework.h"
#include "tarvo/inline_symbolification.h"
#include "tarvo/job.h"
#include "tarvo/observable.h"
#include "tarvo/registration.h"
#include "tarvo/resolve_observer.h"
#include "tarvo/result.h"
#include "tarvo/symbol_file_source.h"
#include "tarvo/symbolification.h"

namespace tarvo {

/// Takes in how the compiler at work lays types out, one after the other. The names of types are
/// those of the Itanium C++ ABI, section 5.1 ("External names (a.k.a. Mangling)"), the same for
/// every compiler that follows it; with them the types of members and the parameters of functions
/// count too.
class [[gnu::visibility("hidden")]] LayoutHash {
 public:
  /// Name, size, alignment, and whether arguments of the type travel in registers.
  template <typename T>
  LayoutHash& Type() {
    AddText(typeid(T).name());
    AddWord(sizeof(T));
    AddWord(alignof(T));
    AddWord(std::is_trivially_copy_constructible_v<T> && std::is_trivially_destructible_v<T>);
    return *this;
  }

  /// A type, then for each of its members the type and what a pointer to it holds: of a field the
  /// offset, of a virtual function one more than the slot's offset in the table (section 2.3).
  template <typename T, typename... Members>
  LayoutHash& Record(Members T::*... members) {
    Type<T>();
    (AddMember(members), ...);
    return *this;
  }

  /// A field that no pointer to member can name: a reference.
  template <typename Field>
  LayoutHash& Reference(std::size_t offset) {
    AddText(typeid(Field*).name());
    AddWord(offset);
    return *this;
  }

  template <typename Enumeration, typename... More>
  LayoutHash& Enumerators(Enumeration first, More... more) {
    Type<Enumeration>();
    AddWord(static_cast<std::uint64_t>(first));
    (AddWord(static_cast<std::uint64_t>(more)), ...);
    return *this;
  }

  [[nodiscard]] std::uint64_t Value() const noexcept { return value_; }

 private:
  template <typename Member>
  void AddMember(Member member) {
    AddText(typeid(Member).name());
    using Words = std::array<std::uint64_t, sizeof(Member) / sizeof(std::uint64_t)>;
    for (const std::uint64_t word : std::bit_cast<Words>(member)) AddWord(word);
  }

  void AddText(std::string_view text) noexcept {
    for (const char c : text) AddByte(static_cast<unsigned char>(c));
    AddByte(0);
  }
  void AddWord(std::uint64_t word) noexcept {
    for (int shift = 0; shift < 64; shift += 8) AddByte(static_cast<unsigned char>(word >> shift));
  }
  /// FNV-1a: differences are mistakes here, nobody makes collisions.
  void AddByte(unsigned char byte) noexcept { value_ = (value_ ^ byte) * 0x100000001B3U; }

  std::uint64_t value_ = 0xCBF29CE484222325U;
};

/// The border as this compiler sees it. A friend of the value types, whose fields are private.
/// Hidden, so that no library can ever be given the answer of another one.
struct [[gnu::visibility("hidden")]] BorderLayout {
  /// Equal on both sides when each can call and read what the other one made. Runs in normal
  /// context only.
  static std::uint64_t Hash() {
    LayoutHash hash;
    AddConnection(hash);
    AddValues(hash);
    AddTrees(hash);
    AddRegistration(hash);
    AddServices(hash);
    AddFramework(hash);
    AddCrashRecords(hash);
    AddComponents(hash);
    return hash.Value();
  }

 private:
  static void AddConnection(LayoutHash& hash) {
    hash.Record(&BuildTag::text)
        .Record(&Connection::sdkVersion, &Connection::size, &Connection::buildTag,
                &Connection::moduleId, &Connection::registerDeclarations, &Connection::framework)
        .Type<CpuYieldDelegate>();
  }

  static void AddValues(LayoutHash& hash) {
    hash.Record(&Object::Retain, &Object::Release)
        .Record(&Ref<Object>::object_)
        .Record(&String::buffer_, &String::data_, &String::size_)
        .Record(&String::Buffer::references)
        .Record(&Url::path_)
        .Record(&SourceLocation::path, &SourceLocation::line)
        .Record(&Error::contents_)
        .Record(&Error::Contents::classId, &Error::Contents::where, &Error::Contents::message,
                &Error::Contents::url)
        .Record(&Result<String>::outcome_)
        .Record(&Result<void>::error_);
  }

  static void AddTrees(LayoutHash& hash) {
    using data_internal::KeyIndex;
    using Entries = data_internal::SharedItems<DataDictionary::Entry, KeyIndex>;
    using Block = Entries::Block;
    hash.Record(&DataArray::items_)
        .Record(&DataDictionary::entries_)
        .Record(&DataDictionary::Entry::key, &DataDictionary::Entry::value)
        .Record(&DataValue::value_)
        .Record(&Entries::block_)
        .Record(&Block::references, &Block::size, &Block::capacity, &Block::header)
        .Record(&KeyIndex::table_)
        .Record(&KeyIndex::Table::slots, &KeyIndex::Table::seed)
        .Record(&KeyIndex::Slot::positionAndOne, &KeyIndex::Slot::hash);
  }

  static void AddRegistration(LayoutHash& hash) {
    hash.Enumerators(ConfigurationKind::Bool, ConfigurationKind::Int, ConfigurationKind::Float,
                     ConfigurationKind::String)
        .Record(&ConfigurationRecord::name, &ConfigurationRecord::help,
                &ConfigurationRecord::variable, &ConfigurationRecord::category,
                &ConfigurationRecord::kind, &ConfigurationRecord::minimum,
                &ConfigurationRecord::maximum, &ConfigurationRecord::defaultText,
                &ConfigurationRecord::defaultValue)
        .Record(&ConfigurationTable::records_, &ConfigurationTable::size_)
        .Record(&ComponentRecord::interfaceId, &ComponentRecord::className,
                &ComponentRecord::create, &ComponentRecord::status)
        .Record(&LifecycleRecord::initialise, &LifecycleRecord::free)
        .Record(&ExecutionJobRecord::registryId, &ExecutionJobRecord::jobId,
                &ExecutionJobRecord::create)
        .Record(&EnumerationValue::name, &EnumerationValue::value)
        .Record(&EnumerationRecord::name, &EnumerationRecord::values)
        .Record(&Registration::configuration, &Registration::components, &Registration::lifecycle,
                &Registration::executionJobs, &Registration::enumerations);
  }

  static void AddServices(LayoutHash& hash) {
    hash.Record(&OutputService::Diagnostic, &OutputService::Critical, &OutputService::Console)
        .Enumerators(FileKind::Nothing, FileKind::File, FileKind::Directory, FileKind::Other)
        .Record(&DirectoryEntry::url, &DirectoryEntry::name, &DirectoryEntry::attributes)
        .Record(&BrowseIterator::Next)
        .Record(&OutputFile::Write, &OutputFile::Commit)
        .Record(&FileService::Detect, &FileService::CreateDirectory, &FileService::Browse,
                &FileService::ReadText, &FileService::ReadStart, &FileService::Create)
        .Record(&DataFormatService::WriteJson)
        .Record(&ArchiveProgress::done, &ArchiveProgress::all)
        .Record(&ReadArchive::Open, &ReadArchive::Extract, &ReadArchive::Progress)
        .Record(&ConfigurationService::QueryString)
        .Record(&ClockService::Now)
        .Record(&Job::Run)
        .Record(&PendingJob::Wait, &PendingJob::TakeResult)
        .Record(&JobService::Enqueue);
  }

  static void AddFramework(LayoutHash& hash) {
    hash.Record(&Framework::Output, &Framework::Files, &Framework::Configuration, &Framework::Jobs,
                &Framework::DataFormats, &Framework::Clock, &Framework::Crash,
                &Framework::CreateObject, &Framework::Bind, &Framework::IsUnderDebugger,
                &Framework::ProgramDirectory, &Framework::ModuleDirectory)
        .Record(&NameAndValue::name, &NameAndValue::value)
        .Record(&ThreadVariableList::items, &ThreadVariableList::size)
        .Record(&CrashServices::diagnostic, &CrashServices::threadVariables,
                &CrashServices::releaseThreadVariables, &CrashServices::captureBegins,
                &CrashServices::reportWritten, &CrashServices::runNextCallback,
                &CrashServices::captureEnds, &CrashServices::attachment,
                &CrashServices::attachmentPlaces, &CrashServices::offerWriter)
        .Record(&Attachment::name, &Attachment::file, &Attachment::text, &Attachment::size)
        .Record(&WrittenReport::crash, &WrittenReport::path, &WrittenReport::descriptor)
        .Record(&ChainedCallback::function, &ChainedCallback::data);
  }

  static void AddCrashRecords(LayoutHash& hash) {
    using Frames = CaptureArray<StackFrame>;
    hash.Record(&Frames::items, &Frames::size, &Frames::capacity)
        .Record(&RegisterValue::name, &RegisterValue::width, &RegisterValue::value)
        .Record(&StackFrame::pc, &StackFrame::sp, &StackFrame::symbolName,
                &StackFrame::symbolOffset, &StackFrame::moduleText)
        .Record(&ThreadRecord::name, &ThreadRecord::tid, &ThreadRecord::registers,
                &ThreadRecord::variables, &ThreadRecord::frames)
        .Record(&ModuleRecord::path, &ModuleRecord::baseAddress, &ModuleRecord::size)
        .Record(&CrashInfo::signal, &CrashInfo::signalName, &CrashInfo::faultAddress,
                &CrashInfo::crashThread, &CrashInfo::modules, &CrashInfo::threads)
        .Record(&LoadedModule::path, &LoadedModule::baseAddress, &LoadedModule::size);
  }

// A record with references has no standard layout; GCC and Clang know its offsets all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
  static void AddComponents(LayoutHash& hash) {
    hash.Record(&CrashHandler::SetCallback, &CrashHandler::SetSecondaryCallback,
                &CrashHandler::SetCrashDataDirectory, &CrashHandler::DisplayCrashDialog,
                &CrashHandler::GetProcessModules, &CrashHandler::ResolveBugReport,
                &CrashHandler::ObservableCrashDataDirectory)
        .Record(&CrashCallbacks::Append, &CrashCallbacks::Remove, &CrashCallbacks::Writer)
        .Record(&Observable::Initialise, &Observable::Deactivate, &Observable::Name,
                &Observable::Add, &Observable::Remove, &Observable::Notify)
        .Record(&Symbolification::Load, &Symbolification::Resolve)
        .Record(&SourceFrame::function, &SourceFrame::sourceFile, &SourceFrame::line,
                &SourceFrame::sourceFileChecksum)
        .Record(&AddressChain::frames, &AddressChain::symbolOffset)
        .Record(&SymbolFileRequest::file, &SymbolFileRequest::architecture, &SymbolFileRequest::id,
                &SymbolFileRequest::takesSymbolTable, &SymbolFileRequest::platform)
        .Record(&InlineSymbolification::Load, &InlineSymbolification::Resolve)
        .Enumerators(FrameOutcome::Resolved, FrameOutcome::NoModule, FrameOutcome::ModuleNotListed,
                     FrameOutcome::ModuleIncomplete, FrameOutcome::NoArchive,
                     FrameOutcome::UnreadableArchive, FrameOutcome::NoBundle,
                     FrameOutcome::UnreadableBundle, FrameOutcome::UnknownAddress,
                     FrameOutcome::WrongSymbols)
        .Record(&FrameReport::outcome, &FrameReport::error)
        .Reference<const DataDictionary>(offsetof(FrameReport, frame))
        .Reference<const String>(offsetof(FrameReport, build))
        .Record(&ResolveObserver::Salvages, &ResolveObserver::TextRead,
                &ResolveObserver::ReportRead, &ResolveObserver::FrameDone,
                &ResolveObserver::ReportResolved, &ResolveObserver::ModuleBegins,
                &ResolveObserver::Working, &ResolveObserver::WorkEnds, &ResolveObserver::PartMissed)
        .Enumerators(SymbolWork::Unpacking, SymbolWork::Indexing)
        .Record(&WorkReport::work, &WorkReport::done, &WorkReport::all)
        .Reference<const String>(offsetof(WorkReport, file))
        .Reference<const DataDictionary>(offsetof(ModuleQuery, crashLog))
        .Reference<const DataDictionary>(offsetof(ModuleQuery, module))
        .Record(&SymbolFileSource::Check, &SymbolFileSource::Find, &SymbolFileSource::Refused);
  }
#pragma GCC diagnostic pop
};

}  // namespace tarvo
