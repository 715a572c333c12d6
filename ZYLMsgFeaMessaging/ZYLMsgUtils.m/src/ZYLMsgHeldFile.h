#ifndef ZYLMSGHELDFILE_H
#define ZYLMSGHELDFILE_H

/// A file that must not be emptied while it is sent. It has a descriptor of its own, because the engine's
/// may be replaced: a send that begins during another one overwrites it.
class ZYLMsgHeldFile {
  public:
    /// Adopts the descriptor; a negative one holds nothing.
    explicit ZYLMsgHeldFile(int descriptor);
    ~ZYLMsgHeldFile();
    ZYLMsgHeldFile(const ZYLMsgHeldFile&) = delete;
    ZYLMsgHeldFile& operator=(const ZYLMsgHeldFile&) = delete;

    /// Ends the hold early.
    void Release();

  private:
    int m_descriptor;
};

#endif
