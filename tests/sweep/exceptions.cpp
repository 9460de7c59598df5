#include "oracle.h"

namespace sweep {
namespace {

constexpr const char* notRepeated = "the run goes on, and a later one finds the build stamped";

constexpr Exception exceptions[] = {
    // ---- What is neither as it was nor as it is to be.
    {Clause::forms, "@(NSFBringDatabaseOnline*|everything fails*)", nullptr, "file/offline.lst",
     "a database that cannot be brought online stays offline"},
    {Clause::forms, nullptr, "@(copy|encyclopedia) krency", "@(file/data/krx/krency.nsf|krency.nsf/*)",
     "the old encyclopedia is gone when the new one cannot be made"},
    {Clause::forms, "everything fails from @(f*|rename|unlink) on", nullptr, "@(file/data/krx/krency.nsf|krency.nsf/*)",
     "the old encyclopedia is gone when the new one cannot be made"},
    {Clause::forms, "@(NSFDbReplicaInfo*|everything fails*)", nullptr, "krency.nsf/replica*",
     "the new encyclopedia keeps the replica ID that it was made with"},
    {Clause::forms, "@(NSFDbReadACL*|NSFDbStoreACL*|everything fails*)", nullptr, "krency.nsf/acl",
     "the new encyclopedia keeps the list that it was made with"},
    {Clause::forms, "everything fails*", "document replaced *", "krconf.nsf/*",
     "nothing can be written back after the deletion: the copy is left, or nothing"},
    {Clause::forms, "NSFNote@(Update|Delete) keeps failing", nullptr, "krconf.nsf/*",
     "nothing can be saved after the deletion: the copy is left, without the old references"},
    {Clause::forms, "@(OSTranslate|NSFItemGetText|NSFNoteOpen)*", "documents krconf", "krconf.nsf/*/content",
     "a document whose name cannot be read has no partner: the template's is added beside it"},
    {Clause::forms, "NSFItemGetText*", nullptr, "krconf.nsf/Register/*/$ConflictAction",
     "an action that cannot be read is set as an absent one is"},

    // ---- What fails and is not reported.
    {Clause::reported, "everything fails*", nullptr, nullptr, "the log's own switch cannot be read any more"},
    {Clause::reported, "NSFDbOpen*", "@(expressions|retired documents|hide|convert|converted|stamp) *", nullptr,
     "a database that cannot be opened is passed over"},
    {Clause::reported, "NSFDb@(ReplicaInfo|ReadACL|StoreACL)*", nullptr, nullptr,
     "the database keeps what it came with"},
    {Clause::reported, "NSF@(ItemSetText|ItemAppendTextList|NoteUpdate|NoteOpen|ItemDelete|Search)*",
     "@(expressions|converted) *", nullptr, "a document that cannot be changed stays as it was"},
    {Clause::reported, "NSFNoteUpdate*", "@(references|hide|sign) *", nullptr, "one note that cannot be saved"},
    {Clause::reported,
     "@(NSF@(FormulaCompile|ItemAppend|ItemSetText|NoteCreate)|OS@(MemAlloc|LockObject|GetEnvironmentString|Translate))"
     "*",
     "sign *", nullptr, "a database works without replication settings"},
    {Clause::reported, "NSF@(NoteDelete|NoteOpen|NoteClose|Search)*", "sign *", nullptr,
     "an old replication setting stays beside the new one"},
    {Clause::reported, "NSF@(NoteOpen|Search)*", "encyclopedia *", nullptr, "what was seen so far counts"},
    {Clause::reported, "@(NSFRemoteConsole|SECKFMGetUserName)*", nullptr, nullptr, "the command is not sent"},
    {Clause::reported, "@(f*|rename)*", "copy *", nullptr, "a database that cannot be copied stays as it was"},
    {Clause::reported, "*of the log*", nullptr, nullptr, "the log's own line is lost"},

    // ---- What a run does not make up for that one before it has passed over.
    {Clause::catchesUp, nullptr, "expressions *", "krconf.nsf/Expression/*", notRepeated},
    {Clause::catchesUp, nullptr, "retired documents *", "krconf.nsf/@(dictionary|entity)/*", notRepeated},
    {Clause::catchesUp, nullptr, "@(copy|hide|convert) *", "@(*%.*|file/offline.lst)", notRepeated},
    {Clause::catchesUp, "NSFBringDatabaseOnline keeps failing", nullptr, "@(file/offline.lst|krhelp.*|krvlog.*)",
     "a database that cannot be brought online stays offline"},
    {Clause::catchesUp, nullptr, "@(converted|documents|document replaced|references) krconf", "krconf.nsf/*",
     notRepeated},
    {Clause::catchesUp, nullptr, "list *", "krhelp.nsf/acl", notRepeated},
    {Clause::catchesUp, nullptr, "policy *", "file/data/krx/PredefinedDLPPolicy.dat", notRepeated},
    {Clause::catchesUp, nullptr, "@(hide krextra|encyclopedia *)",
     "@(file/data/krx/krency.nsf|krency.nsf/*|krhelp.nsf/acl)", notRepeated},
    {Clause::catchesUp, nullptr, "stamp *", "%.nsf/@(BuildNumber|$Signature)", notRepeated},
    {Clause::catchesUp, "everything fails from @(f*|rename|unlink) on", nullptr,
     "@(file/*|*.ntf/*|*.nsf/@(content|attributes|$Signature|acl|replica*|BuildNumber|title)|krconf.nsf/*)",
     notRepeated},
    {Clause::catchesUp, "@(NSFDbOpen|OSTranslate)*", "@(stamp|sign) *", "*.nsf/@(BuildNumber|$Signature|replication)",
     notRepeated},
    {Clause::catchesUp, nullptr, "sign *", "%.nsf/@($Signature|replication)", notRepeated},
    {Clause::catchesUp, "@(* keeps failing|everything fails*|the run dies*)", "@(stamp kr@(msg|lists)|sign *)",
     "*/@(BuildNumber|$Signature|replication)", notRepeated},
    {Clause::catchesUp,
     "NSF@(Item@(Info|Get*|Delete|CreateTextList|AppendTextList)|FormulaCompile|Note@(Copy|Delete|OpenByUNID|Update)|"
     "DbCopyNote) keeps failing",
     nullptr, "@(krconf.nsf/*/*|krency.nsf/*|*/replication)", notRepeated},
    {Clause::catchesUp, "NSFNote@(Sign|Close|Contract) keeps failing", nullptr, "*/@($Signature|replica*)",
     notRepeated},
    {Clause::catchesUp, "@(NSFItemAppend|NSFNote@(Create|Delete)|OS@(MemAlloc|LockObject)) keeps failing", nullptr,
     "*/replication", notRepeated},
    {Clause::catchesUp, "NSFDbReplicaInfo* keeps failing", nullptr, "*/replica*", notRepeated},
    {Clause::catchesUp, "NSFDb@(Read|Store)ACL keeps failing", nullptr, "*/acl", notRepeated},
    {Clause::catchesUp, "@(NSFRemoteConsole|SECKFMGetUserName) keeps failing", nullptr,
     "*/@(content|attributes|$Signature|BuildNumber)", notRepeated},
};

} // namespace

std::span<const Exception> Exceptions() {
    return exceptions;
}

} // namespace sweep
