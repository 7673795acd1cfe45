// A first-generation model as the migration sees it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "contract/interfaces.h"
#include "migration/valores_rel.h"

namespace kestor {

// One model with its export settings and the field catalogue of its module and component, read through a store of the
// first generation. docs/formats.md has the layouts of the content. Column positions count from 0 and must be below the
// number of columns. Several threads may call const methods at a time. Methods throw std::bad_alloc.
class CConteudoRel {
 public:
  // The header or footer line of the export file.
  struct LinhaExportacao {
    std::string descricao;
    std::int32_t tamanho = 0;
    char tipo = '\0';
  };

  CConteudoRel() = default;
  CConteudoRel(const CConteudoRel&) = delete;
  CConteudoRel& operator=(const CConteudoRel&) = delete;

  // Takes a reference to the store. Returns false and changes nothing if there is one already.
  bool DefineRepositorio(IZNPL_Rel& repositorio);

  // Reads a model in place of the previous one. Returns the store's result if that is not S_OK: negative or, for a
  // model that it cannot provide, positive; the content is empty then. Export settings that cannot be read, or have
  // fewer bytes than their head, count as none.
  HRESULT Carrega(const std::string& nome);

  // Reads the field catalogue in place of the previous one. Returns the store's result if that is not S_OK; there is no
  // catalogue then.
  HRESULT CarregaCatalogo();

  // Shares the field catalogue that `outro` has read.
  void UsaCatalogoDe(const CConteudoRel& outro) { catalogo_ = outro.catalogo_; }

  // Returns true if the content was understood to its end. Otherwise the values after the point where it ends are
  // defaults.
  bool Completo() const { return completo_; }

  const ValoresRel& Valores() const { return valores_; }
  std::size_t Bytes() const { return conteudo_.size(); }  // of the content

  bool TemExportacao() const { return exportacao_ != nullptr; }
  // Returns how long the file of the export settings must be to have all their items; 0 without settings.
  std::size_t BytesExportacao() const;

  // Return an empty text, 0 and 0 without export settings.
  LinhaExportacao CabecalhoExportacao() const;
  LinhaExportacao RodapeExportacao() const;

  // Gives what is known of a column's field, with the column's width and alignment: for a fixed column the type and
  // alias of the export item at its position ('A' and empty if there is none), for another one its catalogue record.
  // Returns false if the catalogue does not have it. Texts of the record may fill their field without a NUL.
  bool BuscaCampoColuna(std::size_t posicao, tagREG_CAMPOS_RELATORIO& campo) const;

  // Returns the text of a fixed column, from the export item at its position: unchanged (types A and F), its digits
  // (N), or as an amount (V). Empty for another type and without such an item.
  std::string BuscaConteudoFixo(std::size_t posicao) const;

 private:
  struct Catalogo {
    std::vector<tagREG_CAMPOS_RELATORIO> campos;
    std::vector<std::pair<std::uint16_t, std::size_t>> lugares;  // sorted: code and place among the fields
  };

  void Esquece();
  HRESULT CarregaConteudo(BSTR nome);
  HRESULT CarregaExportacao(BSTR nome);
  const tagREG_RELEXPORTACAO_ITEM* ItemExportacao(std::size_t posicao) const;  // null when there is none
  const tagREG_CAMPOS_RELATORIO* CampoCatalogo(std::uint16_t codigo) const;

  ComPtr<IZNPL_Rel> repositorio_;
  std::string conteudo_;
  ValoresRel valores_;
  bool completo_ = false;
  TaskBlock<tagREG_RELEXPORTACAO> exportacao_;
  TaskBlock<tagREG_RELEXPORTACAO_ITEM> itens_;
  std::shared_ptr<const Catalogo> catalogo_;
};

}  // namespace kestor
