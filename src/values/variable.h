#pragma once

#include <cstddef>
#include <cstdint>

#include "kel/export.h"
#include "kel/kelstring.h"
#include "values/cell.h"
#include "values/name.h"

class SessionStore;

namespace tamber {
struct VariableAccess;
}

/// Base of every script value: a named variable, a parameter, an array element, a structure member,
/// a constant or a temporary.
///
/// Values are shared by counting holders: a new object has one holder, `Duplicate` adds one,
/// `Delete` releases one and destroys the object with the last. A pointer returned by a list, a
/// stack or an element access is borrowed: whoever keeps it beyond the call takes a holder. `Clone`
/// makes an independent copy. Values belong to one context and so to one thread at a time.
///
/// A class overrides the operations that concern it; the others keep the base's behaviour: setters
/// are ignored, getters return 0, "" or null, element operations refuse.
class TAMBER_API Variable {
 public:
  enum enum_TypeId : int32_t {
    None = 0,
    Any = 1,  ///< accepted by every scalar; no value carries it
    Boolean = 2,
    Char = 3,
    Integer = 4,
    Float = 5,
    Double = 6,
    String = 7,  ///< also estring, see VarString::IsEString
    Handle = 8,
    Struct = 9,
    Array = 10,
    AnyOther = 11,  ///< second wildcard
  };
  /// Bits of the flag word.
  enum enum_VarFlags : uint32_t {
    ReferenceParameter = 1,
    Predefined = 2,  ///< survives ResetContext; not copied by Clone
    Session = 4,     ///< saved by ResetContext
  };

  virtual ~Variable();
  // Small variables come from a free list of the thread: scripts make and drop temporaries all the
  // time. One may be deleted on another thread than it was made on.
  static void* operator new(size_t size);
  static void operator delete(void* memory, size_t size);
  /// Variables alive in this process, for leak checks; 0 in builds with NDEBUG, which do not count.
  static int64_t LiveCount();

  /// A new object of the same class, name, flags (less Predefined) and value, with one holder.
  virtual Variable* Clone() const = 0;
  virtual void SetBoolValue(int32_t value);
  virtual void SetCharValue(char value);
  virtual void SetIntegerValue(int32_t value);
  virtual void SetFloatValue(float value);
  virtual void SetDoubleValue(double value);
  virtual void SetHandleValue(void* value);
  /// `len` bytes of `text`, NULs included; 0 takes the string up to its NUL. Null is the empty
  /// string.
  virtual void SetStringValue(const char* text, uint32_t len);
  virtual void SetStringValue(const KelString& text);
  virtual int32_t GetBoolValue() const;
  virtual char GetCharValue() const;
  virtual int32_t GetIntegerValue() const;
  virtual float GetFloatValue() const;
  virtual double GetDoubleValue() const;
  virtual void* GetHandleValue() const;
  /// Never null; GetLength() bytes and a NUL, valid until the variable next changes (for an
  /// estring: until its next getter).
  virtual const char* GetStringValue() const;
  virtual void SetVarName(const KelString& name);
  virtual KelString GetVarName() const;
  virtual enum_TypeId GetTypeId() const;
  /// Length of a string in bytes; 0 for everything else.
  virtual uint32_t GetLength();
  /// Nonzero when Assign would take a value of `other`'s type.
  virtual int32_t IsCompatible(const Variable* other) const;
  virtual int32_t IsSameType(const Variable* other) const;
  /// The variable that a reference refers to, borrowed; null for every other class.
  virtual Variable* Dereference() const;
  /// Assigns the value of `source`, converted to this type. Name and flags stay. 0: refused
  /// (null or incompatible source), nothing changed.
  virtual int32_t Assign(Variable* source);

 private:
  virtual void StoreToSession(const KelString& key, SessionStore* store);
  virtual void LoadFromSession(const KelString& key, SessionStore* store);

 public:
  virtual KelString GetHandleName() const;
  virtual uint32_t GetElementCount() const;
  virtual int32_t IsArray() const;
  /// Element `index`, 1-based, borrowed; null when out of range.
  virtual Variable* GetArrayElement(uint32_t index) const;
  /// Appends; ownership passes to the array when the result is 1.
  virtual int32_t AddArrayElement(Variable* element);
  virtual void DeleteArrayElement(uint32_t index);
  /// Takes the element out; its holder becomes the caller's.
  virtual Variable* RemoveArrayElement(uint32_t index);
  virtual void SwapArrayElements(uint32_t first, uint32_t second);
  /// A prototype of the elements, borrowed; null for the generic array and for other classes.
  virtual const Variable* GetArrayElementType() const;
  /// Appends `delta` empty elements, or removes the last -delta.
  virtual void AdjustArraySize(int32_t delta);
  virtual void SetArraySize(uint32_t size);
  virtual int32_t IsStruct() const;
  virtual void SetStructName(const KelString& name);
  virtual KelString GetStructName() const;
  /// 1-based position of a member; 0 when there is none.
  virtual uint32_t GetStructElementIndex(const KelString& name) const;
  /// A member by 1-based position or by name, borrowed; null when there is none.
  virtual Variable* GetStructElement(uint32_t index) const;
  virtual Variable* GetStructElement(const KelString& name) const;
  /// Adds a member; ownership passes when the result is 1. With `unique`, a second member of a name
  /// is refused.
  virtual int32_t AddStructElement(Variable* member, int32_t unique);
  /// One line: name, type and value, ended by "\r\n" (aggregates: several lines).
  virtual void Dump(KelString& out, const KelString& indent) const;
  virtual void DumpValue(KelString& out, const KelString& indent) const;
  /// The word that declares this type.
  virtual void DumpType(KelString& out, const KelString& indent, int32_t reserved) const;

  /// Ordering and equality of names, which is what lists sort by; the classes order by value.
  bool operator<(const Variable& other) const;
  bool operator>(const Variable& other) const;
  bool operator==(const Variable& other) const;
  /// Takes the value, as Assign does; name, flags and holders stay.
  Variable& operator=(const Variable& other);

  /// A reference answers with its target's flags.
  uint32_t GetVarFlags() const;
  void SetVarFlags(uint32_t flags);

  /// Adds a holder and returns this object.
  Variable* Duplicate();
  /// Releases a holder; destroys the object with the last one. Null is ignored.
  static void Delete(Variable* variable);

  /// Saves to, or loads from, the session with this id under the variable's name.
  void StoreToSession(uint32_t sessionId, SessionStore* store);
  void LoadFromSession(uint32_t sessionId, SessionStore* store);

  /// The name that lists look it up by: a reference's own, where GetVarName returns its target's.
  const tamber::Name& OwnName() const { return name_; }
  void SetOwnName(const tamber::Name& name) { name_ = name; }

 protected:
  Variable(enum_TypeId typeId, tamber::Kind kind, const tamber::Name& name, uint32_t flags);
  Variable(const Variable& other);

 private:
  friend struct tamber::VariableAccess;
  friend class VarReference;  // forwards to its target's private slots

  enum_TypeId typeId_;
  uint32_t flags_;
  int32_t holders_ = 0;

 protected:
  tamber::Kind kind_;  ///< of cell_; VarReference: see isReference_
  bool isReference_ = false;

 private:
  tamber::Name name_;

 protected:
  /// The value. Kept here, not in the classes, so that running code reads and writes it without a
  /// virtual call once it has looked at kind_.
  tamber::Cell cell_;
};

namespace tamber {

/// How the engine reaches the fields of a variable that hosts only see through its operations.
struct VariableAccess {
  static Kind KindOf(const Variable& v) { return v.kind_; }
  static bool IsReference(const Variable& v) { return v.isReference_; }
  static Cell& CellOf(Variable& v) { return v.cell_; }
  static const Cell& CellOf(const Variable& v) { return v.cell_; }
  static int32_t Holders(const Variable& v) { return v.holders_; }
};

}  // namespace tamber
