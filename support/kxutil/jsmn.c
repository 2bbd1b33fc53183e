/* The JSON tokenizer under its published names, non-strict, with the published tokens for every text.

   The published loop looks for the open object or array around a place by walking back over all tokens, which
   takes quadratic time; its own parent links would make every token larger than hosts know it. Here the link
   to the next open token around stands in the end of an open one, which has no end yet. */

#define JSMN_STATIC
#define jsmn_init PublishedInit
#define jsmn_parse PublishedParse
#include <jsmn.h>
#undef jsmn_init
#undef jsmn_parse

#define QLN_EXPORTED __attribute__((visibility("default")))

/* As installed, for whoever includes the header with JSMN_HEADER. */
QLN_EXPORTED void jsmn_init(jsmn_parser* parser);
QLN_EXPORTED int jsmn_parse(jsmn_parser* parser, const char* js, const size_t len, jsmntok_t* tokens,
                            const unsigned int num_tokens);

enum { kNone = -1 };

/* An open token's end: -1, the published one, for the outermost, and one less a place for those inside. */
static int EndOfOpenIn(int enclosing) { return -2 - enclosing; }
static int EnclosingOf(const jsmntok_t* open) { return -2 - open->end; }

/* What one call works on. */
typedef struct {
  jsmn_parser* parser;
  jsmntok_t* tokens;
  unsigned int room;
  int innermost; /* open token */
} Run;

/* Links the tokens that an earlier call left open. */
static void LinkOpenTokens(Run* run) {
  run->innermost = kNone;
  for (int i = 0; i < (int)run->parser->toknext; ++i) {
    jsmntok_t* const token = &run->tokens[i];
    if (token->start == -1 || token->end != -1) continue;
    token->end = EndOfOpenIn(run->innermost);
    run->innermost = i;
  }
}

/* Gives open tokens their published end. Returns whether there are any. */
static int UnlinkOpenTokens(Run* run) {
  const int any = run->innermost != kNone;
  while (run->innermost != kNone) {
    jsmntok_t* const token = &run->tokens[run->innermost];
    run->innermost = EnclosingOf(token);
    token->end = -1;
  }
  return any;
}

static void CountAsPartOfSuper(Run* run) {
  if (run->parser->toksuper != kNone) ++run->tokens[run->parser->toksuper].size;
}

static int Open(Run* run, jsmntype_t type) {
  jsmntok_t* const token = jsmn_alloc_token(run->parser, run->tokens, run->room);
  if (token == NULL) return JSMN_ERROR_NOMEM;
  CountAsPartOfSuper(run);
  token->type = type;
  token->start = (int)run->parser->pos;
  token->end = EndOfOpenIn(run->innermost);
  run->innermost = run->parser->toksuper = (int)run->parser->toknext - 1;
  return 0;
}

static int Close(Run* run, jsmntype_t type) {
  if (run->innermost == kNone) return JSMN_ERROR_INVAL;
  jsmntok_t* const token = &run->tokens[run->innermost];
  if (token->type != type) return JSMN_ERROR_INVAL;
  run->innermost = run->parser->toksuper = EnclosingOf(token);
  token->end = (int)run->parser->pos + 1;
  return 0;
}

/* Behind a comma a value's key is no longer what the next one belongs to. */
static void EndPair(Run* run) {
  if (run->parser->toksuper == kNone || run->innermost == kNone) return;
  const jsmntype_t type = run->tokens[run->parser->toksuper].type;
  if (type != JSMN_ARRAY && type != JSMN_OBJECT) run->parser->toksuper = run->innermost;
}

/* Takes what begins at the position. Returns a published error, or how many tokens came. */
static int TakeNext(Run* run, const char* js, size_t len) {
  int result = 0;
  switch (js[run->parser->pos]) {
    case '{':
      result = Open(run, JSMN_OBJECT);
      break;
    case '[':
      result = Open(run, JSMN_ARRAY);
      break;
    case '}':
      result = Close(run, JSMN_OBJECT);
      return result;
    case ']':
      result = Close(run, JSMN_ARRAY);
      return result;
    case '\t':
    case '\r':
    case '\n':
    case ' ':
      return 0;
    case ':':
      run->parser->toksuper = (int)run->parser->toknext - 1;
      return 0;
    case ',':
      EndPair(run);
      return 0;
    case '"':
      result = jsmn_parse_string(run->parser, js, len, run->tokens, run->room);
      if (result >= 0) CountAsPartOfSuper(run);
      break;
    default:
      result = jsmn_parse_primitive(run->parser, js, len, run->tokens, run->room);
      if (result >= 0) CountAsPartOfSuper(run);
      break;
  }
  return result < 0 ? result : 1;
}

void jsmn_init(jsmn_parser* parser) { PublishedInit(parser); }

int jsmn_parse(jsmn_parser* parser, const char* js, const size_t len, jsmntok_t* tokens,
               const unsigned int num_tokens) {
  if (tokens == NULL) return PublishedParse(parser, js, len, tokens, num_tokens); /* counts only */
  Run run = {parser, tokens, num_tokens, kNone};
  LinkOpenTokens(&run);
  int count = (int)parser->toknext;
  int error = 0;
  for (; parser->pos < len && js[parser->pos] != '\0'; ++parser->pos) {
    const int came = TakeNext(&run, js, len);
    if (came < 0) {
      error = came;
      break;
    }
    count += came;
  }
  const int isPart = UnlinkOpenTokens(&run);
  if (error != 0) return error;
  return isPart ? JSMN_ERROR_PART : count;
}
