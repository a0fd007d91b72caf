#pragma once
#include <core/core_export.h>
#include <QString>

class Database;
class ITransactionService;

// The core object of the terminal. Its consumers reach the operations below
// by slot number in the table of virtual operations (slot 1 is the first
// entry; the virtual destructor takes slots 1 and 2), so the declaration
// order is part of the contract: never reorder, insert or remove a virtual
// here. Unused slots hold reserved placeholders that do nothing.
//
// Thread safety: instance() and setInstance() may be called from any thread.
// An installed core must answer its operations from the database's updating
// thread as well as from the GUI thread (notifications come from both).
class CORE_EXPORT ICore
{
public:
    ICore() = default;
    ICore(ICore const&) = delete;
    ICore& operator=(ICore const&) = delete;

    virtual ~ICore();                                               // 1, 2
    virtual void reserved3();                                       // 3
    virtual void reserved4();                                       // 4
    virtual void reserved5();                                       // 5
    virtual Database* database() const = 0;                         // 6
    virtual void reserved7();                                       // 7
    virtual void reserved8();                                       // 8
    virtual void reserved9();                                       // 9
    virtual void reserved10();                                      // 10
    virtual ITransactionService* transactionService() const = 0;    // 11
    virtual void reserved12();                                      // 12
    virtual void reserved13();                                      // 13
    virtual void reserved14();                                      // 14
    virtual void reserved15();                                      // 15
    virtual void reserved16();                                      // 16
    virtual void reserved17();                                      // 17
    virtual void reserved18();                                      // 18
    virtual void reserved19();                                      // 19
    virtual void reserved20();                                      // 20
    virtual void reserved21();                                      // 21
    virtual void reserved22();                                      // 22
    // `text` is "<kind>|<message>|<link>"; plain texts without the two bars
    // are accepted too. The other arguments are unused and passed as 0/null.
    virtual void notify(QString const& text, int flags, void* context, void* data) = 0; // 23
    virtual void reserved24();                                      // 24
    virtual void reserved25();                                      // 25
    virtual void reserved26();                                      // 26
    virtual QString currentLogin() const = 0;                       // 27
    virtual void reserved28();                                      // 28
    virtual bool passwordWarningEnabled() const = 0;                // 29
    virtual void reserved30();                                      // 30
    virtual int passwordWarningDays() const = 0;                    // 31

    // The process-wide core: the one the program installed, else the ready
    // default (DefaultCore::global()).
    static ICore* instance();
    // Installs the program's own core, which stays owned by the program and
    // must outlive its use; nullptr returns to the default.
    static void setInstance(ICore* core);
};
