#include "oracle.h"

namespace sweep {
namespace {

constexpr const char* notRepeated = "the run goes on, and a later one finds the build stamped";
/** What fails once is tried again; memory that is short is so for the step as a whole. */
constexpr const char* persistently =
    "@(* keeps failing|everything fails*|memory is used up*|the disk is full*|operator new fails)";

#define DLP_FORMS "dictionary|entity|template|dictionary_type|entity_type|industry|region|validator"
#define DLP_DOCUMENTS "krconf.nsf/@(" DLP_FORMS ")/*/content"

constexpr Exception exceptions[] = {
    // ---- What is neither as it was nor as it is to be.
    {Clause::forms, "@(NSFBringDatabaseOnline keeps failing|everything fails*)", nullptr, "file/offline.lst *",
     "a database that cannot be brought online stays offline"},
    {Clause::forms, "NSFDbClose*", nullptr, "file/data/krx/krency.nsf.updkrx-old added",
     "the old encyclopedia is kept beside a new one that may not be whole"},
    {Clause::forms, "@(NSFDbReplicaInfo*|everything fails*)", nullptr,
     "@(krency.nsf/replicaid|file/data/krx/krency.nsf.updkrx-old) *",
     "the new encyclopedia keeps the replica ID that it was made with"},
    {Clause::forms, "@(NSFDbReadACL*|NSFDbStoreACL*|everything fails*)", nullptr,
     "@(krency.nsf/acl|file/data/krx/krency.nsf.updkrx-old) *",
     "the new encyclopedia keeps the list that it was made with"},
    {Clause::forms, "everything fails*", "document replaced *", DLP_DOCUMENTS " *",
     "nothing can be written back after the deletion: the document is kept for the next run"},
    {Clause::forms, "@(NSF*|OS*|everything fails*|memory*)", nullptr,
     "@(file/data/krx/krconf.updkrx-kept.nsf|krconf.updkrx-kept.nsf/*) @(added|changed)",
     "documents are kept until a run has seen what stands in their place"},
    {Clause::forms, nullptr, nullptr, "file/data/krx/krconf.updkrx-references added",
     "the vanished UNIDs are kept until a run has repaired the references to them"},
    {Clause::forms, "everything fails*", "@(document*|references) krconf", "krconf.nsf/dangling/* added",
     "references cannot be repaired any more, nor can the log be written"},
    {Clause::forms, "NSFNote@(Update|Delete) keeps failing", nullptr, DLP_DOCUMENTS " *",
     "nothing can be saved after the deletion: the document is kept for the next run"},

    // ---- What a later run leaves so.
    {Clause::recovers, "@(NSFDb@(Close|ReplicaInfo|ReadACL|StoreACL)*|everything fails*)", nullptr,
     "@(krency.nsf/@(replicaid|acl)|file/data/krx/krency.nsf.updkrx-old) *",
     "the administrator has been told and may have given it another list since: the old one's file stays, no run reads "
     "it"},
    {Clause::recovers, "@(NSFBringDatabaseOnline keeps failing|everything fails*)", nullptr, "file/offline.lst *",
     "a database that cannot be brought online stays offline"},

    {Clause::recovers, "NSF@(DbCopyNote|FormulaCompile|Search) keeps failing", "@(documents|document replaced) krconf",
     "krconf.nsf/dangling/* added",
     "a document that could not be added is missing where others that were added refer to it"},

    // ---- What fails and is not reported.
    {Clause::reported, "@(everything fails*|the disk is full*)", nullptr, nullptr,
     "the log's own switch cannot be read any more, or the log not written"},
    {Clause::reported, "NSFDbOpen keeps failing", "@(expressions|retired documents|hide|convert|converted|stamp) *",
     nullptr, "a database that cannot be opened is passed over"},
    {Clause::reported, "@(NSF@(ItemGetText|NoteOpen)*|NSFItem@(SetText|AppendTextList|Delete) keeps failing)",
     "@(expressions|converted) *", nullptr, "a document that cannot be read or changed stays as it was"},
    {Clause::reported, "NSFItemInfo keeps failing", "references *", nullptr,
     "a list is written anew all the same: the question is only whether it is still there"},
    {Clause::reported, "NSFItemDelete keeps failing", "@(hide|sign) *", nullptr,
     "where signatures are added, the old one stays beside the new one until the note is signed again"},
    {Clause::reported, "OS@(GetEnvironmentString|Translate)*", "sign *", nullptr,
     "a server that does not tell its name gets no replication settings"},
    {Clause::reported, "NSFNoteDelete keeps failing", "references *", nullptr,
     "the file of the kept documents goes as a whole; an old replication setting stays beside the new one"},
    {Clause::reported, "@(fopen|fread|fwrite|fflush|fclose|fsync|rename)*", "copy *", nullptr,
     "a database that cannot be copied stays as it was"},

    // ---- What a run does not make up for that one before it has passed over.
    {Clause::catchesUp, persistently, "expressions *", "krconf.nsf/Expression/*", notRepeated},
    {Clause::catchesUp, persistently, "retired documents *", "krconf.nsf/@(dictionary|entity)/*", notRepeated},
    {Clause::catchesUp, persistently, "@(copy|hide|convert) *", "@(*%.*|file/offline.lst)", notRepeated},
    {Clause::catchesUp, "NSFBringDatabaseOnline keeps failing", nullptr, "@(file/offline.lst|krhelp.*|krvlog.*)",
     "a database that cannot be brought online stays offline"},
    {Clause::catchesUp, persistently, "@(converted|documents|document replaced|references) krconf", "krconf.nsf/*",
     notRepeated},
    {Clause::catchesUp, persistently, "list *", "krhelp.nsf/acl", notRepeated},
    {Clause::catchesUp, persistently, "policy *", "file/data/krx/PredefinedDLPPolicy.dat", notRepeated},
    {Clause::catchesUp, persistently, "@(copy krextra|hide krextra|encyclopedia *)",
     "@(file/data/krx/krency.nsf|krency.nsf/*|krhelp.nsf/acl)", notRepeated},
    {Clause::catchesUp, "@(NSFDb@(Close|ReplicaInfo|ReadACL|StoreACL)*|unlink*|the disk is full*|everything fails*)",
     nullptr, "file/data/krx/krency.nsf.updkrx-*",
     "the old encyclopedia is kept beside a new one that may not be whole, or cannot be removed, and the log says so"},
    {Clause::catchesUp, "OSGetEnvironmentString keeps failing", nullptr, "@(*/replication|krency.nsf/*)", notRepeated},
    {Clause::catchesUp, persistently, "stamp *", "%.nsf/@(BuildNumber|$Signature)", notRepeated},
    {Clause::catchesUp, "the disk is full*", nullptr,
     "@(file/*|*.ntf/*|*.nsf/@(content|attributes|$Signature|acl|replica*|BuildNumber|title)|krconf.nsf/*)",
     notRepeated},
    {Clause::catchesUp, "@(NSFDbOpen|OSTranslate) keeps failing", "@(stamp|sign) *",
     "*.nsf/@(BuildNumber|$Signature|replication)", notRepeated},
    {Clause::catchesUp, persistently, "sign *", "%.nsf/@($Signature|replication)", notRepeated},
    {Clause::catchesUp, "@(* keeps failing|everything fails*|the disk is full*|the run dies*)",
     "@(stamp kr@(msg|lists)|sign *)", "*/@(BuildNumber|$Signature|replication)", notRepeated},
    {Clause::catchesUp,
     "NSF@(Item@(Info|Get*|Delete|Append|CreateTextList|AppendTextList)|FormulaCompile|Note@(Copy|Delete|OpenByUNID|"
     "Update)|"
     "Db@(CopyNote|CreateAndCopy)) keeps failing",
     nullptr, "@(krconf.nsf/*/*|krency.nsf/*|*/replication)", notRepeated},
    {Clause::catchesUp, "NSFNote@(Sign|Close|Contract) keeps failing", nullptr, "*/@($Signature|replica*)",
     notRepeated},
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
